#pragma once

#include "shared/library/common/ipc/MailSlot.h"

#include <memory>
#include <string>
#include <string_view>

namespace Velmor {

/// Sends messages of the family's format to one mailslot. One thread at a time uses an object.
class IPCClient {
public:
    explicit IPCClient(std::string_view target, const SendPatience& patience = {})
        : target_(target), patience_(patience) {}
    IPCClient(const IPCClient&) = delete;
    IPCClient& operator=(const IPCClient&) = delete;
    virtual ~IPCClient() = default;

    /// Sends one message; an empty `replyTo` is left out. No field may hold the byte 0x1B. Returns true, or throws
    /// `IPCException`, as when nobody owns the mailslot.
    bool send(std::string_view type, std::string_view reference, std::string_view text, std::string_view replyTo);

private:
    std::unique_ptr<IPC> channel_; // made at the first message
    std::string target_;
    SendPatience patience_;
};

} // namespace Velmor
