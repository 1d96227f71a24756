#pragma once

#include "process/Process.h"

#include <cstdint>
#include <string>

namespace Velmor {

/// Reads which counters are sampled, and looks their numbers up. False if the file has no counter or can't be read, or
/// if the system has no performance data.
bool readCountersFile(const std::string& fileName);

/// Gives a process that is entered in the registry its counters, and counts it as monitored. Under processMonopoly.
void addCounters(const ProcessPointer& process);

/// A counter's value when nothing has been gathered in it.
double startValue(int32_t mode);

/// The performance monitor's thread; its argument is its `ThreadRecord`.
uint32_t perfMonitor(void* record);

} // namespace Velmor
