#pragma once

#include "process/Process.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Velmor {

/// A line of the counters file.
struct CounterEntry {
    uint32_t counterId = 0; // title index; 0 for a name that isn't known
    int32_t mode = 0;       // of GatherMode
    std::string name;
    int32_t line = 0; // of the file
};

/// What the performance monitor and its records share. The counters are written while no worker runs; the memory is
/// read and written under processMonopoly.
struct PerformanceState {
    std::vector<CounterEntry> counters; // in the order of the file
    std::map<std::string, uint32_t, std::less<>> counterIds;
    uint64_t totalMemoryMb = 1;
    int32_t memoryReadAt = 0; // seconds since 1970
    bool memoryUnknown = false;
};

/// Gives a process that is entered in the registry its counters, and counts it as monitored. Under processMonopoly.
void addCounters(const ProcessPointer& process);

/// A counter's value when nothing has been gathered in it.
double startValue(int32_t mode);

} // namespace Velmor
