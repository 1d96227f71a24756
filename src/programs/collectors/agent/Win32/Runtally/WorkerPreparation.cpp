// Which workers a configuration asks for, and what each needs.

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"
#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"
#include "shared/library/common/files/FileOps.h"

namespace Velmor {

namespace {
const Logger& logger() {
    return runtallyState().logger;
}
} // namespace

bool Runtally::prepareThreads() {
    const RuntallySettings& settings = runtallyState().settings;
    if (settings.pollingOn && !prepareProcessPoller())
        return false;
    runtallyState().moduleFilter.clear();
    const bool polledModules = settings.moduleLogging && settings.modulePollInterval.getSeconds() > 0;
    if (polledModules && !prepareModulePoller())
        return false;
    if (settings.eventsActive == 1 && !prepareEventTracer())
        return false;
    runtallyState().processRules.clear();
    return !settings.performanceMonitoring || preparePerformanceMonitor();
}

bool Runtally::prepareEventTracer() {
    logger().debug(2, "Preparing event tracer thread...");
    if (!prepareThread("EventTracer", 0, eventTracer)) {
        logger().critical(RuntallyMessage::noMemory, "prepare event tracer");
        return fail("The event tracer can't be prepared; see the debug log.");
    }
    logger().debug(3, "   Done.");
    return true;
}

bool Runtally::prepareProcessPoller() {
    logger().debug(2, "Preparing process poller thread...");
    if (!prepareThread("ProcessPoller", ThreadRecord::takesPart, processPoller)) {
        logger().critical(RuntallyMessage::noMemory, "prepare process poller");
        return fail("The process poller can't be prepared; see the debug log.");
    }
    logger().debug(3, "   Done.");
    return true;
}

bool Runtally::prepareModulePoller() {
    logger().debug(2, "Preparing module poller thread...");
    if (!prepareThread("ModulePoller", ThreadRecord::takesPart, modulePoller)) {
        logger().critical(RuntallyMessage::noMemory, "prepare module poller");
        return fail("The module poller can't be prepared; see the debug log.");
    }
    const std::string& file = runtallyState().settings.moduleFilterFile;
    if (FileOps::exists(file)) {
        logger().debug(3, "   Reading file: \"%s\"...", file);
        if (!runtallyState().moduleFilter.readFile(file)) {
            logger().error(RuntallyMessage::fileUnusable, file);
            return fail("The module filter \"" + file +
                        "\" is empty or can't be read; correct it, remove it, or set "
                        "runtally.logging.module-data.interval.filter.");
        }
    }
    logger().debug(3, "   Done.");
    return true;
}

bool Runtally::preparePerformanceMonitor() {
    const RuntallySettings& settings = runtallyState().settings;
    const auto refuse = [](const std::string& file, const char* key) {
        logger().error(RuntallyMessage::fileUnusable, file);
        return fail("The file \"" + file + "\" is absent, empty or can't be read; correct it, or set " + key + ".");
    };
    logger().debug(2, "Preparing performance monitor thread...");
    logger().debug(3, "   Reading file: \"%s\"...", settings.countersFile);
    if (!readCountersFile(settings.countersFile))
        return refuse(settings.countersFile, "runtally.logging.performance-monitor.counters");
    logger().debug(3, "   Reading file: \"%s\"...", settings.performanceRulesFile);
    if (!runtallyState().processRules.readFile(settings.performanceRulesFile))
        return refuse(settings.performanceRulesFile, "runtally.logging.performance-monitor.rules");
    if (!prepareThread("PerformanceMonitor", ThreadRecord::takesPart, perfMonitor)) {
        logger().critical(RuntallyMessage::noMemory, "preparePerformanceMonitor");
        return fail("The performance monitor can't be prepared; see the debug log.");
    }
    logger().debug(3, "   Done.");
    return true;
}

} // namespace Velmor
