// Which libraries the tracked processes have loaded, and the thread that notices when one has gone.

#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/records/ModuleRecordWriter.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
const WorkerPace pace{TimeSpan(30), 250, false};

const Logger& logger() {
    return runtallyState().logger;
}

void logUnloaded(const ProcessPointer& process, const std::atomic<int32_t>& report) {
    for (const ModuleRecord& module : process->updateModules()) {
        if (report == Report::stop)
            return;
        logModule(process, module);
    }
}

void pollInRounds(ThreadRecord& record) {
    int32_t lastPoll = 0;
    runRounds(record, pace, [&](const DateTime& time) {
        const int32_t now = time.getSeconds();
        const bool wasSetBack = now < lastPoll;
        if (wasSetBack || now - lastPoll >= runtallyState().settings.modulePollInterval.getSeconds()) {
            lastPoll = now;
            modPoll(record.report);
            logger().debug(4, "THREAD %s: Processing took %is.", record.name, DateTime().getSeconds() - now);
        }
        return true;
    });
}
} // namespace

void modPoll(const std::atomic<int32_t>& report) {
    logger().debug(5, "Polling modules...");
    {
        const AllCheckedOut hold;
        if (!hold) {
            logger().warning(RuntallyMessage::registryHeld, "modPoll");
            return;
        }
        for (const auto& [pid, process] : runtallyState().registry.processMap)
            logUnloaded(process, report);
    }
    logger().debug(5, "   Done polling modules.");
}

uint32_t modulePoller(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    logger().debug(1, "START THREAD %s.", record.name);
    try {
        pollInRounds(record);
    } catch (...) {
        logger().debug(1, "ERROR while running modulePoller thread");
        throw;
    }
    logger().debug(1, "END THREAD " + record.name);
    return 0;
}

} // namespace Velmor
