#pragma once

#include "platform/MessageQueues.h"

namespace Velmor {

/// A queue for each thread that asks for one. The system's requests are signals: SIGTERM and SIGINT arrive as `close`,
/// SIGHUP as `settingChange`.
class LinuxMessageQueues : public MessageQueues {
public:
    bool post(uint32_t threadId, uint32_t message) override;
    bool peek(uint32_t& message) override;
    bool wait(uint32_t& message) override;
    void receiveSystemRequests() override;
    void obeySystemRequests() override;
};

} // namespace Velmor
