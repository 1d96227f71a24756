#pragma once

#include <cstdint>
#include <string>

namespace Velmor {

/// Reads which counters are sampled, and looks their numbers up. False if the file has no counter or can't be read, or
/// if the system has no performance data.
bool readCountersFile(const std::string& fileName);

/// The performance monitor's thread; its argument is its `ThreadRecord`.
uint32_t perfMonitor(void* record);

} // namespace Velmor
