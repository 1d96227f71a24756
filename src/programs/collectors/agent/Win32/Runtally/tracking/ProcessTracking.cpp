// What becomes of the news of processes.

#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"

#include <algorithm>

namespace Velmor {

namespace {
ProcessRegistry& registry() {
    return runtallyState().registry;
}

const Logger& logger() {
    return runtallyState().logger;
}

/// The entry under the id of `process`, if it is another process that had this id before.
ProcessPointer findPredecessor(const ProcessPointer& process) {
    const auto known = registry().processMap.find(process->pid());
    const bool another = known != registry().processMap.end() && !known->second->isSameProcess(*process);
    return another ? known->second : ProcessPointer();
}

/// Gives up an entry that somebody looked at too late or too early, and whose start is being told by now: one that was
/// gone, or one between its fork and its execution, which bears the program of its parent. Nothing has been recorded of
/// it.
void dropUntimely(const ProcessPointer& process) {
    const auto known = registry().processMap.find(process->pid());
    const auto isLost = [](const Process& other) { return other.getExecutable() == Process::lostText; };
    if (known == registry().processMap.end() || known->second->isLogged() || isLost(*process))
        return;
    const Process& entry = *known->second;
    const bool isForked = entry.isSameProcess(*process) && !entry.isExecutableUnknown() &&
                          !process->isExecutableUnknown() && entry.getExecutable() != process->getExecutable();
    if (isLost(entry) || isForked)
        ProcessTracking::removeProcess(process->pid());
}

/// Ends the logging of a process whose id is in use again: it has ended when its successor started at the latest.
void endPredecessor(const ProcessPointer& predecessor, const ProcessPointer& process) {
    logger().warning(RuntallyMessage::idInUseAgain, process->pid());
    logger().debug(5, "Ending logging of application \"%s\"...", predecessor->getApplication());
    predecessor->setState(ProcessState::ended);
    predecessor->setEnd(std::max(predecessor->getStart(), process->getStart(),
                                 [](const DateTime& a, const DateTime& b) { return a < b; }));
    ProcessTracking::logProcess(predecessor);
    ProcessTracking::removeProcess(process->pid());
}

/// Writes the record of a process whose end is known already, if that end is its own.
void consumeStopEvent(const ProcessPointer& process, const ProcessPointer& stopEvent) {
    if (stopEvent->getExecutable() != process->getExecutable() || process->getStart() > stopEvent->getEnd())
        return;
    logger().debug(1, "addProcess: Pending stop-event for %i (%s). Will log won't add to map.", process->pid(),
                   process->getExecutable());
    process->setState(ProcessState::ended);
    process->setEnd(stopEvent->getEnd());
    ProcessTracking::logProcessData(process);
}

/// Marks a process that the performance rules select. A second report of a tracked one is dropped, and gets nothing.
void selectForMonitoring(const ProcessPointer& process, bool isTracked) {
    const RuntallyState& state = runtallyState();
    process->setMonitored(state.settings.performanceMonitoring &&
                          state.processRules.isMonitored(Process::getLocalComputerName(), process->getExecutable()));
    process->counters().clear(); // of an earlier choice
    if (process->isMonitored() && isTracked)
        addCounters(process);
}
} // namespace

bool ProcessTracking::addProcess(const ProcessPointer& process) {
    const uint32_t pid = process->pid();
    takeIgnoredStart(pid); // of whoever had the id before
    if (const ProcessPointer stopEvent = findStopEvent(pid)) {
        consumeStopEvent(process, stopEvent);
        const MonopolyHold hold(registry().endedMapMonopoly);
        return removeProcessFromEndedProcessMap(pid);
    }
    {
        const RegistryHold hold("addProcess");
        if (!hold)
            return false;
        dropUntimely(process);
        if (const ProcessPointer predecessor = findPredecessor(process))
            endPredecessor(predecessor, process);
        const bool isNew = registry().processMap.try_emplace(pid, process).second;
        selectForMonitoring(process, isNew);
    }
    logger().debug(5, "Added process %i", pid);
    return true;
}

bool ProcessTracking::removeProcess(uint32_t pid) {
    logger().debug(5, "Removing ended process %i from internal structure", pid);
    {
        const RegistryHold hold("removeProcess");
        if (!hold) {
            logger().debug(5, "removeProcess: Could not enforce monopoly.");
            return false;
        }
        ProcessRegistry& maps = registry();
        if (const auto found = maps.processMap.find(pid); found != maps.processMap.end()) {
            if (found->second->isMonitored())
                --maps.monitoredCount;
            maps.processMap.erase(found);
        } else {
            logger().debug(5, "removeProcess: Process %i not found, already removed?", pid);
        }
    }
    logger().debug(5, "Removed process %i", pid);
    return true;
}

ProcessPointer ProcessTracking::findStopEvent(uint32_t pid) {
    const MonopolyHold hold(registry().endedMapMonopoly);
    const auto found = registry().endedProcessMap.find(pid);
    return found == registry().endedProcessMap.end() ? ProcessPointer() : found->second;
}

bool ProcessTracking::addProcessToEndedProcessMap(const ProcessPointer& process) {
    if (registry().endedProcessMap.try_emplace(process->pid(), process).second)
        logger().debug(3, "addProcessToEndedProcessMap: Added process %i", process->pid());
    return true;
}

bool ProcessTracking::removeProcessFromEndedProcessMap(uint32_t pid) {
    registry().endedProcessMap.erase(pid);
    logger().debug(3, "removeProcessFromEndedProcessMap: Removed process %i", pid);
    return true;
}

bool ProcessTracking::endGone(const std::function<bool(const ProcessPointer&)>& isGone) {
    std::vector<uint32_t> gone;
    {
        const AllCheckedOut hold;
        if (!hold)
            return false;
        for (const auto& [pid, process] : registry().processMap)
            if (isGone(process))
                gone.push_back(pid);
    }
    for (const uint32_t pid : gone) {
        const ProcessPointer report(new Process(pid, 0, Process::Mode::ended, false));
        report->setEnd(DateTime());
        logProcess(report);
    }
    return true;
}

bool ProcessTracking::endUnseen() {
    std::vector<uint32_t> present;
    if (!platform().processes->enumerate(present))
        return false;
    std::sort(present.begin(), present.end());
    return endGone([&](const ProcessPointer& process) {
        // A handle is this process's own; its id may be another's by now.
        return process->isOpen() ? !process->isRunning()
                                 : !std::binary_search(present.begin(), present.end(), process->pid());
    });
}

void ProcessTracking::trackAnew(const ProcessPointer& process) {
    removeProcess(process->pid());
    process->setState(ProcessState::started);
    process->setStart(DateTime());
    process->setEnd(process->getStart());
    registry().processMap.try_emplace(process->pid(), process);
    selectForMonitoring(process, true);
}

void ProcessTracking::giveTrackedUp() {
    RuntallyState& state = runtallyState();
    if (const size_t count = state.registry.processMap.size(); count > 0)
        logger().notice(RuntallyMessage::trackingEnded, std::to_string(count));
    state.registry.clear();
    state.procPoll.forget();
    state.pollChanges.clear();
    state.lastLook = platform().clock->now();
}

void ProcessTracking::renewTracked() {
    ProcessMap& map = registry().processMap;
    registry().monitoredCount = 0;
    for (auto place = map.begin(); place != map.end();) {
        const ProcessPointer process = place->second;
        ++place;
        process->setMonitored(false);
        const std::string name = runtallyState().exeFinder->find(process->getExecutable());
        if (name == ExeFinder::ignored) {
            removeProcess(process->pid());
            noteIgnoredStart(process->pid());
            continue;
        }
        if (!Process::isUnknownName(name))
            process->setApplication(name);
        selectForMonitoring(process, true);
    }
}

void ProcessTracking::logProcess(const ProcessPointer& process) {
    logger().debug(5, "Logging process %i", process->pid());
    switch (process->getState()) {
    case ProcessState::started:
        logStartProcess(process);
        break;
    case ProcessState::ended:
        logEndProcess(process);
        break;
    case ProcessState::inUse:
        logProcessUsage(process);
        break;
    case ProcessState::unresolved:
        break;
    }
}

} // namespace Velmor
