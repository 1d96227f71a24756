#pragma once

#include "programs/collectors/agent/Win32/Runtally/state/PerformanceState.h"
#include "shared/library/common/errors/Findings.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// Reads which counters are sampled, and looks their numbers up. False if the file has no counter or can't be read, or
/// if the system has no performance data.
bool readCountersFile(const std::string& fileName);

/// Appends the counters of a file, without their numbers. False if it is absent or empty. Throws FileException. Tells
/// the sink what is otherwise than it looks.
bool readCounterEntries(const std::string& fileName, std::vector<CounterEntry>& entries, const FindingSink& sink = {});

/// The performance monitor's thread; its argument is its `ThreadRecord`.
uint32_t perfMonitor(void* record);

} // namespace Velmor
