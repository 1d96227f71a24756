// What a process leaves at its end and at each slice.

#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/Win32/Runtally/records/ModuleRecordWriter.h"
#include "programs/collectors/agent/Win32/Runtally/records/PerformanceRecord.h"
#include "programs/collectors/agent/Win32/Runtally/state/ProcessEventLog.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"

namespace Velmor {

namespace {
constexpr int32_t discrepancyAllowance = 10; // seconds of inverted times that are dropped quietly after a record

const Logger& logger() {
    return runtallyState().logger;
}

ProcessRegistry& registry() {
    return runtallyState().registry;
}

void reportNoAccess(std::string_view who, uint32_t pid) {
    logger().warning(RuntallyMessage::registryHeld, who);
    logger().debug(1, "Access failed. Process %i  could not be logged.", pid);
}

void reportNotFound(std::string_view who, const Process& report) {
    logger().debug(5, "%s: Unable to locate process \"%s\" (pid=%i)in process map.", who, report.getExecutable(),
                   report.pid());
}

/// Sets an end in the future to now; true if it did, with the moment in `now`.
bool clampFutureEnd(Process& report, const Process& entry, DateTime& now) {
    now.setNow();
    if (report.getEnd() <= now)
        return false;
    logger().warning(RuntallyMessage::endInFuture, entry.getApplication(), entry.pid());
    return true;
}

/// Tells of a slice that would end before it starts; true if it would.
bool isInverted(std::string_view who, const ProcessPointer& entry, const DateTime& end) {
    const uint32_t pid = entry->pid();
    if (entry->getStart() <= end)
        return false;
    const std::string startText = entry->getStart().toString(false, false);
    const std::string endText = end.toString(false, false);
    if (entry->isLogged() && (entry->getStart() - end).getSeconds() <= discrepancyAllowance)
        logger().debug(1, "%s: StartTime > EndTime, discarding :%s, %i, Start:%s, End:%s", who, entry->getApplication(),
                       pid, startText, endText);
    else
        logger().error(RuntallyMessage::timesInverted, entry->getApplication(), pid, startText, endText);
    return true;
}

void dropPendingInfo(uint32_t pid) {
    const MonopolyHold hold(registry().pendingInfoMonopoly);
    registry().pendingInfoMap.erase(pid);
}

/// The module and performance records that belong to a slice or an end.
void logSideRecords(const ProcessPointer& entry) {
    if (runtallyState().settings.moduleLogging) {
        logger().debug(5, "   Getting modules for \"%s\" (pid=%i)...", entry->getApplication(), entry->pid());
        for (const ModuleRecord& module : entry->updateModules())
            logModule(entry, module);
    }
    if (!runtallyState().settings.performanceMonitoring || !entry->isMonitored())
        return;
    try {
        logPerfMonData(entry, 0);
    } catch (...) {
        logger().debug(1, "Failed to log performance data!");
    }
}

void dropStopEvent(uint32_t pid) {
    const MonopolyHold hold(registry().endedMapMonopoly);
    ProcessTracking::removeProcessFromEndedProcessMap(pid);
}

/// Whether an end that came before its start is the entry's own.
bool isOwnStopEvent(const Process& stopEvent, Process& entry) {
    return stopEvent.getExecutable() == entry.getExecutable() && entry.getStart() <= stopEvent.getEnd() &&
           !entry.isRunning();
}

/// Writes the slice of an entry for whose id an end is waiting.
void logSliceWithStopEvent(const ProcessPointer& entry, const ProcessPointer& stopEvent) {
    const uint32_t pid = entry->pid();
    if (isOwnStopEvent(*stopEvent, *entry)) {
        logger().debug(1, "logProcessUsage: Pending stop-event found for %i, (%s)", pid, entry->getExecutable());
        entry->setEnd(stopEvent->getEnd());
        entry->setState(ProcessState::ended);
        ProcessTracking::logProcessData(entry);
        ProcessTracking::removeProcess(pid);
        dropStopEvent(pid);
        return;
    }
    logger().debug(1, "logProcessUsage: Invalid pending stop-event removed for %i", pid);
    dropStopEvent(pid);
    ProcessTracking::logProcessData(entry);
}

void sliceAll(const DateTime& now) {
    ProcessMap& map = registry().processMap;
    for (auto place = map.begin(); place != map.end();) {
        const ProcessPointer entry = place->second;
        ++place; // a slice may take the entry at hand out of the map
        entry->setEnd(now);
        entry->setState(ProcessState::inUse);
        ProcessTracking::logProcessUsage(entry);
        entry->setStart(now);
    }
}
} // namespace

void ProcessTracking::logEndProcess(const ProcessPointer& report) {
    const uint32_t pid = report->pid();
    logger().debug(5, "Logging end of process %i", pid);
    const CheckedOut found(pid);
    if (!found.isAccessible()) {
        reportNoAccess("logEndProcess", pid);
        return;
    }
    const ProcessPointer& entry = found.process();
    if (entry.isNull()) {
        reportNotFound("logEndProcess", *report);
        if (takeIgnoredStart(pid))
            return; // nobody waits for this end
        const MonopolyHold hold(registry().endedMapMonopoly);
        addProcessToEndedProcessMap(report);
        return;
    }
    logger().debug(3, "logEndProcess: Application \"%s\" (pid=%i) ended at:%i.", entry->getApplication(), pid,
                   report->getEnd().getSeconds());
    dropPendingInfo(pid);
    DateTime now;
    if (clampFutureEnd(*report, *entry, now)) {
        logger().debug(5, "logEndProcess: adjusted time discrepancy, end:%i, current:%i.",
                       report->getEnd().getSeconds(), now.getSeconds());
        report->setEnd(now);
    }
    if (isInverted("logEndProcess", entry, report->getEnd())) {
        removeProcess(pid);
        return;
    }
    entry->setEnd(report->getEnd());
    entry->setState(ProcessState::ended);
    logSideRecords(entry);
    logProcessData(entry);
    removeProcess(pid);
    logProcessEvent(false, entry);
}

void ProcessTracking::logProcessUsage(const ProcessPointer& report) {
    const uint32_t pid = report->pid();
    logger().debug(5, "Logging usage of process %i", pid);
    const CheckedOut found(pid);
    if (!found.isAccessible()) {
        reportNoAccess("logProcessUsage", pid);
        return;
    }
    const ProcessPointer& entry = found.process();
    if (entry.isNull()) {
        reportNotFound("logProcessUsage", *report);
        return;
    }
    logger().debug(3, "logProcessUsage: Application \"%s\" (pid=%i) was found and is in use.", entry->getApplication(),
                   pid);
    DateTime now;
    if (clampFutureEnd(*report, *entry, now))
        report->setEnd(now);
    entry->setEnd(report->getEnd());
    entry->setState(ProcessState::inUse);
    dropPendingInfo(pid);
    if (isInverted("logProcessUsage", entry, entry->getEnd())) {
        trackAnew(entry); // it may still run: the clock has been set back
        return;
    }
    logSideRecords(entry);
    if (const ProcessPointer stopEvent = findStopEvent(pid)) {
        logSliceWithStopEvent(entry, stopEvent);
        return;
    }
    logProcessData(entry);
}

void ProcessTracking::dumpAll() {
    logger().debug(1, "Dumping processes...");
    TimeSpan taken;
    {
        const AllCheckedOut hold;
        if (!hold) {
            logger().warning(RuntallyMessage::registryHeld, "dumpAll");
            return;
        }
        const DateTime now;
        sliceAll(now);
        taken = DateTime() - now;
    }
    logger().debug(1, "All processes has now been dumped. It took %s time.", taken.toString());
}

} // namespace Velmor
