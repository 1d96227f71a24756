#pragma once

#include "platform/Mailslots.h"
#include "shared/library/common/ipc/IPC.h"
#include "shared/library/common/system/Monopoly.h"

#include <cstdint>
#include <memory>

namespace Velmor {

/// A mailslot of this machine: the receiving end owns the name, a sending end writes into a mailslot that another
/// program owns. The senders of all programs of the family take turns through one lock of the machine. One thread at a
/// time uses an object.
class MailSlot : public IPC {
public:
    /// Milliseconds for which a sender waits for its turn, if nothing else is said.
    static constexpr uint32_t patientTurn = 5000;

    /// A receiver takes its name here; a sender opens it at its first `send`. `turnLimit` is in milliseconds.
    MailSlot(MailSlotMode mode, std::string_view name, uint32_t turnLimit = patientTurn);

    bool send(std::string_view text) override;
    void receive(std::vector<std::string>& list) override;

private:
    void open();

    std::unique_ptr<MailslotReader> reader_;
    std::unique_ptr<MailslotWriter> writer_; // null until the first send and after one that failed
    std::string name_;
    uint32_t turnLimit_; // milliseconds
    Monopoly sendLock_;
};

} // namespace Velmor
