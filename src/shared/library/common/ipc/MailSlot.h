#pragma once

#include "platform/Mailslots.h"
#include "shared/library/common/ipc/IPC.h"
#include "shared/library/common/system/Monopoly.h"

#include <cstdint>
#include <memory>

namespace Velmor {

/// How long a sender waits, in milliseconds.
struct SendPatience {
    uint32_t turn = 5000;                       // for its turn among all senders of the machine; 0: not at all
    uint32_t reader = Mailslots::usualPatience; // for a reader that stands still; 0: not at all
};

/// A mailslot of this machine: the receiving end owns the name, a sending end writes into a mailslot that another
/// program owns. The senders of all programs of the family take turns through one lock of the machine. One thread at a
/// time uses an object.
class MailSlot : public IPC {
public:
    /// A receiver takes its name here, open to everybody only if the family's value `MailslotAccess` is "everyone"; a
    /// sender opens it at its first `send`.
    MailSlot(MailSlotMode mode, std::string_view name, const SendPatience& patience = {});

    bool send(std::string_view text) override;
    void receive(std::vector<std::string>& list) override;
    /// The same with the senders.
    void receive(std::vector<MailslotMessage>& list);

    /// Of a receiver: how many messages it couldn't keep since the last call, and whether its name still leads to it.
    uint64_t takeRefused() { return reader_->takeRefused(); }
    bool isReachable() { return reader_->isReachable(); }

private:
    void open();

    std::unique_ptr<MailslotReader> reader_;
    std::unique_ptr<MailslotWriter> writer_; // null until the first send and after one that failed
    std::string name_;
    SendPatience patience_;
    Monopoly sendLock_;
};

} // namespace Velmor
