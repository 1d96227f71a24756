#include "programs/collectors/agent/ThreadRecord.h"

#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/ProgramState.h"

namespace Velmor {

void reportStatus(std::atomic<int32_t>& report, bool fatal) {
    // Exchanged, not stored: an order to stop that comes in between must not be lost.
    int32_t question = Report::question;
    report.compare_exchange_strong(question, fatal ? Report::fatal : Report::alive);
    if (!programState().quitFlag)
        return;
    int32_t seen = report.load();
    while (seen != Report::stop && !report.compare_exchange_weak(seen, Report::quitting)) {
    }
}

void logThreadStatus(const ThreadRecord& record, bool fatal) {
    if (fatal && agentLogger().passes(3))
        agentLogger().debug(3, "THREAD %s is in fatal status.", record.name);
    else if (programState().quitFlag)
        agentLogger().debug(5, "THREAD %s is waiting to quit.", record.name);
    else
        agentLogger().debug(5, "THREAD %s is running as normal.", record.name);
}

} // namespace Velmor
