// The thread that watches the process table.

#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>

namespace Velmor {

namespace {
const TimeSpan statusInterval(10);
constexpr uint32_t roundPause = 10; // milliseconds
constexpr uint32_t quitPause = 25;  // milliseconds

const Logger& logger() {
    return runtallyState().logger;
}

/// Gives a tracked process without a name what a fresh look has found. False if the round is over.
bool completeEntry(const ProcessPointer& fresh) {
    const AllCheckedOut hold;
    if (!hold)
        return false;
    ProcessMap& map = runtallyState().registry.processMap;
    const auto entry = map.find(fresh->pid());
    if (entry == map.end() || !entry->second->isExecutableUnknown())
        return true;
    logger().debug(2, "procPoll: Completing process %u...", fresh->pid());
    const std::string name = runtallyState().exeFinder->find(fresh->getExecutable());
    if (name == ExeFinder::ignored || Process::isUnknownName(name)) {
        logger().debug(5, "procPoll: Ignoring this process.");
        return false;
    }
    fresh->setApplication(name);
    logger().debug(2, "procPoll: Application \"%s\" (pid=%i) has been completed.", name, fresh->pid());
    entry->second->copyIdentity(*fresh);
    return true;
}

void completingRound() {
    std::vector<ProcessPointer> list;
    if (!runtallyState().procPoll.scan(list, 0)) {
        logger().debug(1, "Failed to poll process table.");
        return;
    }
    for (const ProcessPointer& fresh : list)
        if (!fresh->isExecutableUnknown() && !completeEntry(fresh))
            return;
}

void reportEnd(const ProcessPointer& change) {
    logger().debug(5, "      Process ended.");
    Runtally::admitPending(change->pid());
    const CheckedOut found(change->pid());
    if (!found.isAccessible()) {
        logger().warning(RuntallyMessage::registryHeld, "procPoll");
        return;
    }
    const ProcessPointer& entry = found.process();
    if (entry.isNull()) {
        logger().debug(5, "      Unable to locate process in process map.");
        return;
    }
    logger().debug(5, "      Found process in process map.");
    entry->setState(ProcessState::ended);
    entry->setEnd(change->getEnd());
    Runtally::logProcess(entry);
}

void reportChange(const ProcessPointer& change) {
    if (change->getState() != ProcessState::started) {
        reportEnd(change);
        return;
    }
    logger().debug(5, "      Process started.");
    Runtally::logProcess(change);
}

/// Ends what is tracked and has gone, after events were given up: neither they nor a comparison of polls tell of it.
void endUnseen() {
    RuntallyState& state = runtallyState();
    std::vector<uint32_t> present;
    if (!state.eventsDropped || !platform().processes->enumerate(present))
        return;
    std::sort(present.begin(), present.end());
    const auto isGone = [&](const Process& process) {
        return !std::binary_search(present.begin(), present.end(), process.pid());
    };
    if (Runtally::endGone(isGone)) // else the next round does it
        state.eventsDropped = false;
}

/// The poll's objects are the registry's as well by now, and this dates them.
std::vector<ProcessPointer> takeChanges() {
    RuntallyState& state = runtallyState();
    std::vector<ProcessPointer> changes;
    if (const RegistryHold hold("procPoll"); hold)
        state.procPoll.getPollData(changes, TimeSpan(state.settings.pollInterval.getSeconds() / 2));
    else
        logger().warning(RuntallyMessage::registryHeld, "procPoll"); // the next round finds them
    return changes;
}

void fullRound() {
    RuntallyState& state = runtallyState();
    if (!state.procPoll.poll(0)) {
        logger().debug(1, "Failed to poll process table.");
        return;
    }
    endUnseen();
    state.polledOnce = true; // not before: with events this is the round that enters what runs
    const std::vector<ProcessPointer> changes = takeChanges();
    if (changes.empty())
        return;
    logger().debug(5, "Polling process table. Got %i changes since last time.", changes.size());
    for (size_t i = 0; i < changes.size(); ++i) {
        logger().debug(5, "   Updating process %i/%i, PID=%i...", i + 1, changes.size(), changes[i]->pid());
        reportChange(changes[i]);
    }
}

void runRounds(ThreadRecord& record) {
    DateTime lastStatus = DateTime::minDate;
    DateTime nextPoll;
    while (record.report != Report::stop) {
        const DateTime now;
        reportStatus(record.report, false);
        if (lastStatus + statusInterval < now) {
            lastStatus = now;
            logThreadStatus(record);
        }
        if (programState().quitFlag) {
            Timer::sleep(quitPause);
            continue;
        }
        if (now >= nextPoll) {
            nextPoll += runtallyState().settings.pollInterval;
            Runtally::procPoll();
            if (logger().passes(4))
                logger().debug(4, "THREAD %s: Processing took %s.", record.name, (DateTime() - now).toString());
        }
        Timer::sleep(roundPause);
    }
}
} // namespace

void Runtally::procPoll() {
    if (runtallyState().polledOnce && runtallyState().settings.eventsActive == 1)
        completingRound();
    else
        fullRound();
    tracerState().tableReported = runtallyState().polledOnce.load();
}

uint32_t processPoller(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    logger().debug(1, "START THREAD %s.", record.name);
    try {
        runRounds(record);
    } catch (...) {
        logger().debug(1, "ERROR while running procPoller thread");
        throw;
    }
    logger().debug(1, "END THREAD " + record.name);
    return 0;
}

} // namespace Velmor
