#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace Velmor {

/// The settings of the debug log that all file agents of the program share. Made during start-up and reconfiguration,
/// read by every thread that writes a line.
struct LogFileSettings {
    std::string programName; // leads the registry values; set before the first line
    std::atomic<uint32_t> rotationScheme{0};
    std::atomic<int32_t> rotationPeriod{0}; // seconds
    std::atomic<uint32_t> sizeLimit{10};    // megabytes
    std::atomic<bool> rotateAtStart{true};  // the init scheme has not been dealt with yet
    std::atomic<int32_t> lastPeriod{0};     // the values for which
    std::atomic<uint32_t> lastSizeLimit{0}; // the next rotation was last worked out
};

LogFileSettings& logFileSettings();

} // namespace Velmor
