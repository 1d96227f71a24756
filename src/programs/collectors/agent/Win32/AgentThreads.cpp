// The worker threads of an `Agent`, and their supervision.

#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "shared/library/common/errors/JobException.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr uint32_t verifyPause = 750; // milliseconds that workers have to end after a reconfiguration's order
constexpr uint32_t busyLimit = 2000;  // milliseconds more for those in the middle of a round
constexpr uint32_t busyStep = 50;
constexpr std::string_view unknown = "UNKNOWN";

/// Runs a thread operation. False if it threw, which `report` is told: with the exception's number, or "UNKNOWN".
template <typename Operation, typename ReportCall>
bool succeeds(Operation&& operation, ReportCall&& report) {
    try {
        operation();
        return true;
    } catch (const JobException& failure) {
        report(std::to_string(failure.getCode()));
        agentLogger().debug(1, failure.getFullDescription());
    } catch (...) {
        report(std::string(unknown));
    }
    return false;
}

auto fatalReport(int32_t message, const ThreadRecord& record) {
    return [message, &record](const std::string& number) { agentLogger().fatal(message, record.name, number); };
}
} // namespace

ThreadRecord& Agent::addThread(const ThreadRecord& record) {
    return threads_.emplace_back(record);
}

bool Agent::prepareThread(const std::string& name, uint16_t reporting, ThreadRoutine routine) {
    ThreadRecord& record = addThread(ThreadRecord(name, reporting));
    record.thread = SmartPointer<ThreadInstance>(new (std::nothrow) ThreadInstance(routine, &record));
    return !record.thread.isNull();
}

bool Agent::startThreads() {
    agentLogger().debug(2, "Starting threads...");
    int32_t started = 0;
    for (ThreadRecord& record : threads_) {
        const bool runs = succeeds([&] { record.thread->execute(); },
                                   [&](const std::string& number) {
                                       agentLogger().error(AgentMessage::threadNotStarted, record.name, number);
                                   });
        if (!runs) {
            record.state = ThreadState::down;
            continue;
        }
        record.state = ThreadState::healthy;
        record.lastOk.setNow();
        ++started;
        if (!record.name.empty())
            agentLogger().debug(4, "   Started \"%s\".", record.name);
    }
    programState().workers.begin(threads_);
    const auto failed = static_cast<int32_t>(threads_.size()) - started;
    agentLogger().debug(2, "   Started %i thread(s), and failed to start %i.", started, failed);
    if (failed == 0)
        return true;
    agentLogger().fatal(AgentMessage::threadsNotStarted);
    return false;
}

/// Ends the thread of a record, and frees what it held until then; not before, since it may go on for as long as its
/// end takes, and would do so without its locks. A failure is reported.
bool Agent::endThread(ThreadRecord& record) {
    if (!succeeds([&] { record.thread->stop(); }, fatalReport(AgentMessage::threadNotStopped, record)))
        return false;
    threadLost(record);
    return true;
}

/// The same; a failure leaves the state at healthy for the next attempt.
bool Agent::stopThread(ThreadRecord& record) {
    if (endThread(record))
        return true;
    record.state = ThreadState::healthy;
    return false;
}

void Agent::stopThreads() {
    agentLogger().debug(2, "Stopping threads...");
    int32_t signalled = 0;
    int32_t killed = 0;
    for (ThreadRecord& record : threads_) {
        if (record.state == ThreadState::down)
            continue;
        if (record.reporting & ThreadRecord::takesPart) {
            record.report = Report::stop;
            ++signalled;
        } else if (stopThread(record)) {
            record.state = ThreadState::down;
            ++killed;
        }
    }
    agentLogger().debug(2, "   %i thread(s) signalled to stop, %i killed.", signalled, killed);
}

bool Agent::verifyStoppedThreads() {
    agentLogger().debug(2, "Verifying stopped threads...");
    int32_t ended = 0;
    int32_t killed = 0;
    for (ThreadRecord& record : threads_) {
        if (record.thread->getStatus() != JobStatus::running) {
            ++ended;
            continue;
        }
        stopThread(record);
        if (record.thread->getStatus() == JobStatus::running)
            continue;
        ++killed;
        programState().workers.killed(record.name);
    }
    const auto failed = static_cast<int32_t>(threads_.size()) - ended - killed;
    agentLogger().debug(2, "   %i thread(s) ended nicely, %i was killed, and %i failed to end.", ended, killed, failed);
    if (failed == 0)
        return true;
    agentLogger().fatal(AgentMessage::threadsNotEnded);
    return false;
}

bool Agent::hasRunningThread() const {
    return std::any_of(threads_.begin(), threads_.end(),
                       [](const ThreadRecord& record) { return record.thread->getStatus() == JobStatus::running; });
}

void Agent::awaitThreads(uint16_t reporting) {
    const auto isBusy = [reporting](const ThreadRecord& record) {
        return (record.reporting & ThreadRecord::takesPart) == reporting &&
               record.thread->getStatus() == JobStatus::running;
    };
    Timer::waitUntil(busyLimit, busyStep, [&] { return std::none_of(threads_.begin(), threads_.end(), isBusy); });
}

bool Agent::stopAndVerify() {
    stopThreads();
    Timer::sleep(verifyPause);
    awaitThreads(ThreadRecord::takesPart);
    return verifyStoppedThreads();
}

void Agent::threadLost(const ThreadRecord& record) const {
    if (threadLostHook_)
        threadLostHook_(record.thread->getThreadId());
}

bool Agent::checkThreads() {
    agentLogger().debug(5, "Check: Checking threads...");
    if (!monitorThreads()) {
        for (ThreadRecord& record : threads_) {
            bool goesOn = true;
            try {
                goesOn = checkThread(record);
            } catch (...) {
                agentLogger().debug(1, "ERROR while checking thread");
            }
            if (!goesOn)
                return false;
        }
    }
    agentLogger().debug(5, "Check: Finished checking threads.");
    return true;
}

bool Agent::monitorThreads() {
    agentLogger().debug(5, "Monitoring threads...");
    agentLogger().debug(3, initiating_ ? "   Initiating..." : "   Checking...");
    bool well = true;
    for (ThreadRecord& record : threads_) {
        well = monitorThread(record, initiating_) && well;
        programState().workers.note(record);
    }
    initiating_ = !initiating_;
    agentLogger().debug(5, "Done monitoring threads.");
    return well;
}

bool Agent::monitorThread(ThreadRecord& record, bool initiating) {
    agentLogger().debug(5, "   Now checking thread \"%s\"...", record.name);
    if (record.thread->getStatus() != JobStatus::running) {
        agentLogger().debug(5, "   \"%s\" is down.", record.name);
        record.state = ThreadState::down;
        return false;
    }
    const bool takesPart = (record.reporting & ThreadRecord::takesPart) != 0;
    if (initiating) {
        if (takesPart)
            record.report = Report::question;
        record.lastOk.setNow();
        return true;
    }
    record.state = ThreadState::healthy;
    const int32_t report = takesPart ? record.report.load() : Report::alive;
    if (report == Report::question) {
        agentLogger().debug(5, "   \"%s\" is silent.", record.name);
        record.state = ThreadState::silent;
        return false;
    }
    if (report == Report::fatal) {
        agentLogger().debug(5, "   \"%s\" is fatal.", record.name);
        return false;
    }
    if (report == Report::quitting)
        agentLogger().debug(5, "   \"%s\" is waiting for quit signal.", record.name);
    record.lastOk.setNow();
    return true;
}

bool Agent::checkThread(ThreadRecord& record) {
    agentLogger().debug(5, "Check: Checking \"%s\"...", record.name);
    if (record.state == ThreadState::healthy) {
        agentLogger().debug(5, "   Check: \"%s\" is OK.", record.name);
        if (record.report != Report::fatal) {
            record.lastOk.setNow();
            return true;
        }
        agentLogger().debug(5, "   Check: \"%s\" is fatal.", record.name);
        agentLogger().debug(1, "Check: Thread \"%s\" has reported a fatal error. We are shutting down.",
                            record.name.empty() ? std::string(unknown) : record.name);
        record.report = Report::stop;
        programState().quitFlag = 1;
        return false;
    }
    agentLogger().debug(4, "   Check: \"%s\" is not OK.", record.name);
    if (agentLogger().passes(5))
        agentLogger().debug(5, "      Check: The last time it was OK was %s ago.",
                            (DateTime() - record.lastOk).toString());
    if (record.state == ThreadState::silent && !killSilent(record))
        return false;
    if (record.state == ThreadState::down && !programState().quitFlag)
        return restart(record);
    return true;
}

bool Agent::killSilent(ThreadRecord& record) {
    agentLogger().debug(5, "   Check: \"%s\" is silent.", record.name);
    if (!endThread(record)) {
        programState().isStuck = true;
        return false;
    }
    record.state = ThreadState::down;
    programState().workers.killed(record.name);
    agentLogger().debug(5, "   Check: \"%s\" has been killed.", record.name);
    return true;
}

bool Agent::restart(ThreadRecord& record) {
    threadLost(record);
    record.report = Report::nothing; // a stop that was asked for would end it at once
    agentLogger().debug(2, "   Check: Thread \"%s\" is down. Attempting restart...", record.name);
    if (!succeeds([&] { record.thread->execute(); }, fatalReport(AgentMessage::threadNotStarted, record)))
        return false;
    record.state = ThreadState::healthy;
    record.lastOk.setNow();
    programState().workers.restarted(record.name);
    agentLogger().debug(5, "   Check: \"%s\" has been restarted.", record.name);
    return true;
}

} // namespace Velmor
