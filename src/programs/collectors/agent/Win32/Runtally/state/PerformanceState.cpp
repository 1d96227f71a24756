#include "programs/collectors/agent/Win32/Runtally/state/PerformanceState.h"

#include "process/performance/OscQuery.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include <limits>

namespace Velmor {

namespace {
const Logger& logger() {
    return runtallyState().logger;
}
} // namespace

void addCounters(const ProcessPointer& process) {
    const std::vector<CounterEntry>& entries = runtallyState().performance.counters;
    std::vector<ProcessCounter>& counters = process->counters();
    counters.reserve(entries.size());
    logger().debug(5, "Adding counters for PID=%i", process->pid());
    for (const CounterEntry& entry : entries) {
        ProcessCounter& counter = counters.emplace_back();
        counter.pid = process->pid();
        counter.counterId = entry.counterId;
        counter.mode = entry.mode;
        counter.value = startValue(entry.mode);
        logger().debug(5, "   Added counter %i for PID=%i", counter.counterId, process->pid());
    }
    ++runtallyState().registry.monitoredCount;
}

double startValue(int32_t mode) {
    return mode == GatherMode::smallest ? std::numeric_limits<double>::max() : 0;
}

} // namespace Velmor
