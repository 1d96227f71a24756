#pragma once

#include "shared/library/logger/Logger.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Velmor {

/// What all `Process` objects share.
struct ProcessShared {
    Logger logger;
    std::string localComputerName;
    std::atomic<bool> hasEventSchema{false}; // the definitions of events have been reached
    std::atomic<int32_t> systemNumber{0};    // major version times ten plus minor; 0 until it is asked for
    std::atomic<uint32_t> untoldCodes{0};    // exit codes that could not be learnt since the last message
    std::atomic<bool> hasToldCodes{false};
    std::atomic<uint32_t> codesTold{0}; // ticks, of the last message
};

ProcessShared& processShared();

} // namespace Velmor
