#pragma once

#include "platform/Mailslots.h"

namespace Velmor {

/// A mailslot is a datagram socket in the runtime directory. A thread of the reader takes the datagrams off the kernel
/// as they come, so that writers aren't held up however rarely the owner reads.
class LinuxMailslots : public Mailslots {
public:
    std::unique_ptr<MailslotReader> create(std::string_view name, MailslotAccess access, uint32_t& error) override;
    std::unique_ptr<MailslotWriter> open(std::string_view name, uint32_t patience, uint32_t& error) override;
    bool mayCommand(std::string& group) override;
    std::string errorText(uint32_t error) override;
};

} // namespace Velmor
