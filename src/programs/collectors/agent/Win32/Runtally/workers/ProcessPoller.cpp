// The thread that watches the process table.

#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"
#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"
#include "shared/library/common/system/LossBook.h"
#include "shared/library/common/time/Timer.h"

#include <utility>

namespace Velmor {

namespace {
const WorkerPace pace{TimeSpan(10), 10, true};
constexpr uint32_t sessionLimit = 30000; // milliseconds that the session of events may take to come up
constexpr uint32_t sessionStep = 50;

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
    const std::string name = runtallyState().exeFinder->find(fresh->getExecutable(), fresh->isFileHere());
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
    ProcessTracking::admitPending(change->pid());
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
    ProcessTracking::logProcess(entry);
}

void reportChange(const ProcessPointer& change) {
    if (change->getState() != ProcessState::started) {
        reportEnd(change);
        return;
    }
    logger().debug(5, "      Process started.");
    ProcessTracking::logProcess(change);
}

/// Whether what a change tells has reached the registry.
bool isDone(const ProcessPointer& change) {
    ProcessRegistry& registry = runtallyState().registry;
    const RegistryHold hold("procPoll");
    if (!hold)
        return false;
    const bool isTracked = registry.processMap.contains(change->pid());
    const MonopolyHold pendingHold(registry.pendingInfoMonopoly);
    const bool isPending = registry.pendingInfoMap.contains(change->pid());
    return change->getState() == ProcessState::started ? isTracked || isPending : !isTracked && !isPending;
}

void giveUp(const ProcessPointer& change) {
    logger().error(RuntallyMessage::changeGivenUp, change->getExecutable(), change->pid());
}

/// Reports what was found last, by a former thread as well.
void reportChanges() {
    const auto report = [](const ProcessPointer& change, size_t number, size_t count) {
        logger().debug(5, "   Updating process %i/%i, PID=%i...", number, count, change->pid());
        reportChange(change);
    };
    runtallyState().pollChanges.report(report, isDone, giveUp);
}

/// Ends what is tracked and has gone, after events were given up: neither they nor a comparison of polls tell of it.
void endUnseen() {
    RuntallyState& state = runtallyState();
    if (state.eventsDropped && ProcessTracking::endUnseen()) // else the next round does it
        state.eventsDropped = false;
}

TimeSpan halfInterval() {
    return TimeSpan(runtallyState().settings.pollInterval.getSeconds() / 2);
}

/// Changes are dated back by half an interval; but what has ended was there at the last look, and what a round that
/// takes over from another source enters was not, nor before the start that the system tells.
void dateChanges(std::vector<ProcessPointer>& changes, bool isTakingOver) {
    const DateTime lastLook(runtallyState().lastLook);
    const bool isSetBack = DateTime() < lastLook;
    for (const ProcessPointer& change : changes) {
        if (change->getState() != ProcessState::started && change->getEnd() < lastLook && !isSetBack)
            change->setEnd(lastLook);
        if (change->getState() == ProcessState::started && isTakingOver)
            change->startNotBefore(lastLook);
    }
}

/// The poll's objects are the registry's as well by now, and this dates them. False if the next round has to find them.
bool takeChanges() {
    RuntallyState& state = runtallyState();
    const bool isTakingOver =
        state.settings.eventsActive == 1 || (state.lastLook != 0 && !state.procPoll.hasPrevious());
    std::vector<ProcessPointer> changes;
    const RegistryHold hold("procPoll");
    if (!hold) {
        logger().warning(RuntallyMessage::registryHeld, "procPoll");
        return false;
    }
    state.procPoll.getPollData(changes, halfInterval());
    dateChanges(changes, isTakingOver);
    if (!changes.empty())
        logger().debug(5, "Polling process table. Got %i changes since last time.", changes.size());
    state.pollChanges.take(std::move(changes));
    return true;
}

/// Without the table the handles tell what has ended, and each that is given back makes room.
void reportEndedByHandle() {
    std::vector<ProcessPointer> changes;
    if (const RegistryHold hold("procPoll"); hold)
        runtallyState().procPoll.takeEnded(changes, halfInterval());
    dateChanges(changes, false);
    runtallyState().pollChanges.take(std::move(changes));
    reportChanges();
}

/// Says once that the system has no handles left, until it has some again.
void tellShortage(bool isTableRead, uint64_t unopened) {
    RuntallyState& state = runtallyState();
    const bool isShort = !isTableRead || unopened != 0;
    if (isShort == std::exchange(state.isShortOfHandles, isShort) || !isShort)
        return;
    if (isTableRead)
        logger().warning(RuntallyMessage::processesUnopened, std::to_string(unopened));
    else
        logger().warning(RuntallyMessage::tableUnreadable);
}

/// Compares the table with the one before; `isTableRead` tells whether it could be had.
bool pollTable() {
    const auto unopened = [] { return lossBook().entry(LossBook::Cause::unopened).count; };
    const uint64_t before = unopened();
    runtallyState().procPoll.dropUntaken(); // of a thread that was ended by force
    const bool isTableRead = runtallyState().procPoll.poll(0);
    tellShortage(isTableRead, unopened() - before);
    if (!isTableRead)
        logger().debug(1, "Failed to poll process table.");
    return isTableRead;
}

void fullRound() {
    RuntallyState& state = runtallyState();
    const bool isWatched = tracerState().hasSession;
    const int32_t begin = platform().clock->now();
    if (!pollTable()) {
        if (state.settings.eventsActive != 1)
            reportEndedByHandle();
        return;
    }
    endUnseen();
    if (!takeChanges())
        return;
    state.polledOnce = true; // not before: with events this is the round that enters what runs
    reportChanges();
    if (state.settings.eventsActive == 1) {
        tracerState().isTableWatched = isWatched;
        state.procPoll.forget(); // its handles aren't needed any more
    } else {
        state.lastLook = begin;
    }
}

/// With events the first round finds what they don't tell of: it must not look before they are told.
void awaitSession(const ThreadRecord& record) {
    Timer::waitUntil(sessionLimit, sessionStep, [&] {
        return runtallyState().settings.eventsActive != 1 || runtallyState().polledOnce || tracerState().hasSession ||
               programState().quitFlag || record.report == Report::stop;
    });
}

void pollInRounds(ThreadRecord& record) {
    awaitSession(record);
    const TimeSpan& interval = runtallyState().settings.pollInterval;
    DateTime nextPoll;
    runRounds(record, pace, [&](const DateTime& now) {
        if (const bool wasSetBack = now + interval < nextPoll; now >= nextPoll || wasSetBack) {
            nextPoll = wasSetBack ? now + interval : nextPoll + interval;
            procPoll();
            if (logger().passes(4))
                logger().debug(4, "THREAD %s: Processing took %s.", record.name, (DateTime() - now).toString());
        }
        return true;
    });
}
} // namespace

void procPoll() {
    reportChanges();
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
        pollInRounds(record);
    } catch (...) {
        logger().debug(1, "ERROR while running procPoller thread");
        throw;
    }
    logger().debug(1, "END THREAD " + record.name);
    return 0;
}

} // namespace Velmor
