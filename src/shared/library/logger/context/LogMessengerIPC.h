#pragma once

#include "shared/library/common/system/Monopoly.h"
#include "shared/library/logger/LogMessenger.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

namespace Velmor {

class IPCClient;

/// A messenger that also sends each numbered message, but no debug message, to the core service. A send never waits:
/// while the core service stands still, the newest 1,000 messages do. Without a core service they stay in the debug
/// file alone.
class LogMessengerIPC : public LogMessenger {
public:
    LogMessengerIPC();
    ~LogMessengerIPC() override;

    /// As `LogMessenger::post`; false also if a numbered message couldn't be forwarded.
    bool post(const std::string& text) override;
    uint64_t sendWaiting() override;

private:
    bool forward(const std::string& text);
    bool takeTurn();
    bool send(const std::string& text);
    bool sendAll();

    Monopoly sending_;                     // guards the next three
    std::unique_ptr<IPCClient> client_;    // made at the first numbered message
    std::deque<std::string> waiting_;      // for a core service that stands still
    uint64_t fellOut_ = 0;                 // of `waiting_`, since the last report
    std::atomic<uint32_t> holder_{0};      // the thread that has kept others from sending, 0 for none
    std::atomic<uint32_t> holderSince_{0}; // likewise ticks
};

} // namespace Velmor
