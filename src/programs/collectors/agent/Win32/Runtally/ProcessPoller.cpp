// The thread that watches the process table.

#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/EventTracer.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/RuntallyState.h"
#include "shared/library/common/Timer.h"

namespace Velmor {

namespace {
const TimeSpan statusInterval(10);
constexpr uint32_t roundPause = 10; // milliseconds
constexpr uint32_t quitPause = 25;  // milliseconds
constexpr int32_t noAccessWarning = 23;

const Logger& logger() {
    return runtallyState().logger;
}

/// Gives a tracked process without a name what a fresh look has found. False if the round is over.
bool completeEntry(const ProcessPointer& fresh) {
    if (!Runtally::checkOutAll())
        return false;
    ProcessMap& map = runtallyState().registry.processMap;
    const auto entry = map.find(fresh->pid());
    bool goesOn = true;
    if (entry != map.end() && entry->second->isExecutableUnknown()) {
        logger().debug(2, "procPoll: Completing process %u...", fresh->pid());
        const std::string name = runtallyState().exeFinder->find(fresh->getExecutable());
        goesOn = name != ExeFinder::ignored && !Process::isUnknownName(name);
        if (goesOn) {
            fresh->setApplication(name);
            logger().debug(2, "procPoll: Application \"%s\" (pid=%i) has been completed.", name, fresh->pid());
            entry->second->copyIdentity(*fresh);
        } else {
            logger().debug(5, "procPoll: Ignoring this process.");
        }
    }
    Runtally::checkInAll();
    return goesOn;
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
    ProcessPointer entry;
    if (!Runtally::checkOut(change->pid(), entry)) {
        logger().warning(noAccessWarning, "procPoll");
        return;
    }
    if (entry.isNull()) {
        logger().debug(5, "      Unable to locate process in process map.");
        return;
    }
    logger().debug(5, "      Found process in process map.");
    entry->setState(ProcessState::ended);
    entry->setEnd(change->getEnd());
    Runtally::logProcess(entry);
    Runtally::checkIn(entry);
}

void reportChange(const ProcessPointer& change) {
    if (change->getState() != ProcessState::started) {
        reportEnd(change);
        return;
    }
    logger().debug(5, "      Process started.");
    Runtally::logProcess(change);
}

void fullRound() {
    RuntallyState& state = runtallyState();
    state.polledOnce = true;
    if (!state.procPoll.poll(0)) {
        logger().debug(1, "Failed to poll process table.");
        return;
    }
    std::vector<ProcessPointer> changes;
    state.procPoll.getPollData(changes, TimeSpan(state.settings.pollInterval.getSeconds() / 2));
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
    tracerState().tableReported = true;
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
