#include "programs/collectors/agent/ThreadRecord.h"

#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/ProgramState.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr uint32_t quitPause = 25; // milliseconds
}

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

void runRounds(ThreadRecord& record, const WorkerPace& pace, const std::function<bool(const DateTime& now)>& round) {
    DateTime lastStatus = DateTime::minDate;
    while (record.report != Report::stop) {
        const DateTime now;
        reportStatus(record.report, false);
        if (programState().quitFlag && !pace.waitsForOrder)
            return;
        if (lastStatus + pace.statusInterval < now) {
            lastStatus = now;
            logThreadStatus(record);
        }
        if (programState().quitFlag) {
            Timer::sleep(quitPause);
            continue;
        }
        if (!round(now))
            return;
        Timer::sleep(pace.pause);
    }
}

} // namespace Velmor
