#pragma once

#include "shared/library/common/system/Monopoly.h"
#include "shared/library/logger/LogMessenger.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace Velmor {

class IPCClient;

/// A messenger that also sends each numbered message, but no debug message, to the core service. There is no retry:
/// what the core service doesn't take stays in the debug file alone.
class LogMessengerIPC : public LogMessenger {
public:
    LogMessengerIPC();
    ~LogMessengerIPC() override;

    /// As `LogMessenger::post`; false also if a numbered message couldn't be forwarded.
    bool post(const std::string& text) override;

private:
    bool forward(const std::string& text);
    bool takeTurn();

    Monopoly sending_;                     // guards client_, which one thread at a time may use
    std::unique_ptr<IPCClient> client_;    // made at the first numbered message
    bool isHeldUp_ = false;                // the core service stands still, and gets nothing for a while
    uint32_t heldUpSince_ = 0;             // milliseconds of the clock's ticks
    std::atomic<uint32_t> holder_{0};      // the thread that has kept others from sending, 0 for none
    std::atomic<uint32_t> holderSince_{0}; // likewise ticks
};

} // namespace Velmor
