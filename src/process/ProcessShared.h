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
};

ProcessShared& processShared();

} // namespace Velmor
