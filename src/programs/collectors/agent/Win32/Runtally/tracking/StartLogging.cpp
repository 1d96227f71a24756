// How a start becomes a tracked process.

#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"

#include "process/RuntallyMessages.h"
#include "process/naming/IdValues.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"

namespace Velmor {

namespace {
constexpr uint32_t lastSystemPid = 9; // ids up to here are the system's own and may have no executable

const Logger& logger() {
    return runtallyState().logger;
}

/// An end that lies before this start belongs to a process that had the id before; it would cost the new process its
/// records.
void dropStaleStopEvent(const Process& start) {
    ProcessRegistry& registry = runtallyState().registry;
    const MonopolyHold hold(registry.endedMapMonopoly);
    const auto found = registry.endedProcessMap.find(start.pid());
    if (found != registry.endedProcessMap.end() && found->second->getEnd() < start.getStart())
        ProcessTracking::removeProcessFromEndedProcessMap(start.pid());
}

void park(const ProcessPointer& process) {
    logger().debug(3, "   logStartProcess: Have no process info for %i - will try again later", process->pid());
    ProcessRegistry& maps = runtallyState().registry;
    const MonopolyHold hold(maps.pendingInfoMonopoly);
    maps.pendingInfoMap[process->pid()] = process;
}

/// Takes a process that waits on as the start that it is, though a poll may have marked its end by now.
void admit(const ProcessPointer& process) {
    runtallyState().registry.pendingInfoMap.erase(process->pid());
    process->setState(ProcessState::started);
    ProcessTracking::logProcess(process);
}

bool isNonePending() {
    const MonopolyHold hold(runtallyState().registry.pendingInfoMonopoly);
    return runtallyState().registry.pendingInfoMap.empty();
}

/// Whether the process has no name yet although it should, after another look at it.
bool lacksName(Process& process) {
    if (process.pid() <= lastSystemPid || !process.isExecutableUnknown())
        return false;
    logger().debug(4, "logStartProcess: Trying to get data for unknown process...");
    process.refreshInfo();
    if (process.isExecutableUnknown())
        logger().debug(4, "   logStartProcess: Failed to get executable - will not log until we get it...");
    else
        logger().debug(4, "   logStartProcess: Got executable=\"%s\".", process.getExecutable());
    return process.isExecutableUnknown();
}

void clampFutureStart(Process& process) {
    const DateTime now;
    if (process.getStart() <= now)
        return;
    logger().warning(RuntallyMessage::startInFuture, process.getApplication(), process.pid());
    logger().debug(5, "logStartProcess: adjusted time discrepancy, start:%i, current:%i.",
                   process.getStart().getSeconds(), now.getSeconds());
    process.setStart(now);
    process.setEnd(now);
}

void addIdValues(Process& process) {
    std::string text = process.getUser();
    getIdValues(process.getUser(), text, "user id", "project id", process.pid(), process.getExecutable());
    process.setUser(text);
}
} // namespace

void ProcessTracking::logStartProcess(const ProcessPointer& process) {
    logger().debug(5, "Logging start of process %i", process->pid());
    dropStaleStopEvent(*process);
    if (lacksName(*process)) {
        park(process);
        return;
    }
    const std::string name = runtallyState().exeFinder->find(process->getExecutable(), process->isFileHere());
    if (name == ExeFinder::ignored || Process::isUnknownName(name)) {
        logger().debug(5, "logStartProcess: Ignoring this process.");
        noteIgnoredStart(process->pid());
        return;
    }
    process->setApplication(name);
    clampFutureStart(*process);
    logger().debug(3, "logStartProcess: Application \"%s\" (pid=%i) started at %i.", name, process->pid(),
                   process->getStart().getSeconds());
    if (runtallyState().settings.moduleLogging)
        process->updateModules();
    addIdValues(*process);
    if (!addProcess(process))
        logger().warning(RuntallyMessage::registryHeld, "logStartProcess");
}

void ProcessTracking::retryPendingInfo() {
    ProcessRegistry& maps = runtallyState().registry;
    if (isNonePending())
        return;
    const RegistryHold hold("retryPendingInfo"); // first, as everywhere: a slice waits for the other with this one held
    if (!hold)
        return; // they wait on
    const MonopolyHold pendingHold(maps.pendingInfoMonopoly);
    std::vector<ProcessPointer> named;
    for (const auto& [pid, process] : maps.pendingInfoMap) {
        process->refreshInfo();
        if (!process->isExecutableUnknown())
            named.push_back(process);
    }
    for (const ProcessPointer& process : named)
        admit(process);
}

void ProcessTracking::admitPending(uint32_t pid) {
    ProcessRegistry& maps = runtallyState().registry;
    if (isNonePending())
        return;
    const RegistryHold hold("admitPending");
    if (!hold)
        return;
    const MonopolyHold pendingHold(maps.pendingInfoMonopoly);
    const auto found = maps.pendingInfoMap.find(pid);
    if (found == maps.pendingInfoMap.end())
        return;
    admit(ProcessPointer(found->second));
    maps.pendingInfoMap.erase(pid); // no further look will find what has ended
}

} // namespace Velmor
