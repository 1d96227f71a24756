#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Which end of a mailslot an object is.
enum class MailSlotMode : uint32_t {
    receiver = 0,
    sender = 1,       // on this machine
    domainSender = 2, // to every machine of the domain
};

/// A one-way channel of whole texts between programs. Failures are thrown as `IPCException`.
class IPC {
public:
    explicit IPC(MailSlotMode mode) : mode_(mode) {}
    virtual ~IPC() = default;

    /// Writes one message. Returns true, or throws.
    virtual bool send(std::string_view text) = 0;

    /// Appends all waiting messages in the order of arrival; never waits for one.
    virtual void receive(std::vector<std::string>& list) = 0;

protected:
    MailSlotMode mode_;
};

} // namespace Velmor
