#pragma once

#include "platform/Mailslots.h"
#include "shared/library/common/IPC.h"
#include "shared/library/common/Monopoly.h"

#include <memory>

namespace Velmor {

/// A mailslot of this machine: the receiving end owns the name, a sending end writes into a mailslot that another
/// program owns. The senders of all programs of the family take turns through one lock of the machine. One thread at a
/// time uses an object.
class MailSlot : public IPC {
public:
    /// A receiver takes its name here; a sender opens it at its first `send`.
    MailSlot(MailSlotMode mode, std::string_view name);

    bool send(std::string_view text) override;
    void receive(std::vector<std::string>& list) override;

private:
    void open();

    std::unique_ptr<MailslotReader> reader_;
    std::unique_ptr<MailslotWriter> writer_; // null until the first send and after one that failed
    std::string name_;
    Monopoly sendLock_;
};

} // namespace Velmor
