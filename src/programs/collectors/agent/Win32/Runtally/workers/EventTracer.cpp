// The thread that gets the system's process events.

#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"

#include "platform/Clock.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"
#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"
#include "shared/library/common/errors/StructuredException.h"
#include "shared/library/common/time/Timer.h"

#include <array>
#include <cstdio>
#include <utility>

namespace Velmor {

namespace {
constexpr uint32_t quitResult = static_cast<uint32_t>(-1);
constexpr uint32_t tableLimit = 30000; // milliseconds that the poller's first round may take
constexpr uint32_t tableStep = 50;
constexpr uint32_t restLimit = 1000; // milliseconds that events which wait at the program's end may take
constexpr uint32_t orderLimit = 700; // likewise at the end of the thread, which would be ended by force after a second

const Logger& logger() {
    return runtallyState().logger;
}

std::string_view typeName(uint8_t type) {
    constexpr std::array<std::string_view, 9> names{
        "EVENT_TRACE_TYPE_INFO",     "EVENT_TRACE_TYPE_START",   "EVENT_TRACE_TYPE_END",
        "EVENT_TRACE_TYPE_DC_START", "EVENT_TRACE_TYPE_DC_END",  "EVENT_TRACE_TYPE_EXTENSION",
        "EVENT_TRACE_TYPE_REPLY",    "EVENT_TRACE_TYPE_DEQUEUE", "EVENT_TRACE_TYPE_CHECKPOINT",
    };
    return type < names.size() ? names[type] : "unknown";
}

void reportException(const char* who, const StructuredException& failure) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s: Exception Code 0x%08x", who, failure.code);
    logger().warning(RuntallyMessage::workerException, text.data());
}

void takeNews(const TraceEvent& event) {
    const ProcessPointer process(new (std::nothrow) Process(event));
    if (process.isNull()) {
        logger().debug(1, "   Failed to create process object.");
        return;
    }
    ProcessTracking::logProcess(process);
}

/// Turns an event that the session was told to hand over into news, though the program may be told to quit just then.
void takeEvent(const TraceEvent& event) {
    logger().debug(4, "Native event tracer callback: Processing...");
    logger().debug(5, "  Type=%s  InstanceId=%i  ParentInstanceId=%i  MofLength=%i  ProcessId=%i", typeName(event.type),
                   event.instanceId, event.parentInstanceId, event.payload.size(), event.processId);
    if (event.type != TraceEventType::start && event.type != TraceEventType::end)
        return;
    try {
        takeNews(event);
    } catch (const StructuredException& failure) {
        reportException("processCallback", failure);
    } catch (...) {
        logger().warning(RuntallyMessage::workerException, "processCallback");
    }
    logger().debug(4, "Native event tracer callback: Finished processing.");
}

/// Reads the session for as long as it may: until the program ends, or the thread is told to end and leaves the session
/// to the next one.
class EventReader {
public:
    explicit EventReader() { look(); } // an order to end finds a queue from now on

    /// Reads until the session ends, or this may not go on.
    void read(KernelTracer& tracer) {
        tracer.setBufferCallback([this, &tracer] { return goOn(tracer); });
        tracer.setRestCallback([this] { return takeRest(); });
        tracer.setEventCallback([this](const TraceEvent& event) {
            hasTaken_ = true;
            takeEvent(event);
        });
        tracer.consume();
    }

    /// Whether the thread was told to end.
    bool isToldToEnd() {
        look();
        return isToldToEnd_;
    }

private:
    void look() {
        for (uint32_t message = 0; !isToldToEnd_ && platform().messageQueues->peek(message);)
            if (message == WindowMessage::destroy) {
                isToldToEnd_ = true;
                hasTaken_ = true;
                toldAt_ = platform().clock->ticks();
            }
    }

    bool goOn(KernelTracer& tracer) {
        LossReport& losses = tracerState().losses;
        if (programState().quitFlag) {
            losses.finish();
            restBegin_ = platform().clock->ticks();
            return false;
        }
        losses.look();
        // What waits is taken first: a new configuration judges what comes behind it.
        if (!isToldToEnd())
            return true;
        if (std::exchange(hasTaken_, false) && platform().clock->ticks() - toldAt_ < orderLimit)
            return true;
        tracer.keepSession();
        return false;
    }

    /// The same about what was waiting when the program was told to quit.
    bool takeRest() const { return platform().clock->ticks() - restBegin_ < restLimit; }

    bool isToldToEnd_ = false;
    bool hasTaken_ = false;  // an event, since the last question
    uint32_t toldAt_ = 0;    // ticks
    uint32_t restBegin_ = 0; // ticks, when the program was told to quit
};

/// The poller enters what runs already. Until it has, news would meet a table that is only half entered: a process that
/// it has seen, and whose end is reported before it gets to it, would be entered for good.
void awaitTable(EventReader& reader) {
    Timer::waitUntil(tableLimit, tableStep, [&] {
        return !runtallyState().settings.pollingOn || tracerState().tableReported || programState().quitFlag ||
               reader.isToldToEnd();
    });
}

/// Enters what runs. For the first source of a run it began with the collector; later ones know what has run until the
/// last look at it.
void enterRunning() {
    const int32_t lastLook = runtallyState().lastLook;
    if (addRunningProcesses(lastLook != 0 ? lastLook : runtallyState().programStart))
        return;
    logger().debug(1, "eventTracer: addProcess failed.");
    logger().error(RuntallyMessage::tracerNotReading);
}

/// Ends what was gone when it was to be entered: no event will tell of it.
void endWhatWasGone() {
    ProcessTracking::endGone(
        [](const ProcessPointer& process) { return process->getExecutable() == Process::lostText; });
}

void dropTracer() {
    TracerState& state = tracerState();
    state.tracer.reset();
    state.hasSession = false;
    runtallyState().lastLook = platform().clock->now();
}

/// Makes the tracer if there is none. False if the thread has to end, with `result`.
bool prepareTracer(uint32_t& result) {
    if (tracerState().tracer)
        return true;
    tracerState().tracer.reset(new (std::nothrow) KernelTracer(logger().unit(), programState().quitFlag));
    if (!tracerState().tracer) {
        logger().critical(RuntallyMessage::noMemory, "event tracer");
        return false;
    }
    if (programState().quitFlag) {
        result = quitResult;
        return false;
    }
    tracerState().hasSession = true;
    return true;
}

/// False if the thread has to end without its end line.
bool trace(uint32_t& result) {
    EventReader reader;
    TracerState& state = tracerState();
    // What a session that is still there has noted needs no look at the table, which would date it too early; and in
    // the poller's first round the poller enters what runs.
    const bool isNew = !state.tracer;
    const bool isToEnter = isNew && (!runtallyState().settings.pollingOn || runtallyState().polledOnce);
    if (isNew && runtallyState().lastLook != 0 && !ProcessTracking::endUnseen())
        logger().debug(1, "eventTracer: What has ended can't be found.");
    if (isToEnter)
        enterRunning();
    logger().debug(1, "Trying to start Native event tracer...");
    if (!prepareTracer(result))
        return false;
    awaitTable(reader);
    if (runtallyState().settings.pollingOn && !state.tableReported && reader.isToldToEnd())
        return true;
    if (isToEnter || (isNew && !state.isTableWatched))
        endWhatWasGone();
    logger().debug(1, "Native event tracer is now running.");
    state.running = true;
    reader.read(*state.tracer);
    state.running = false;
    if (!reader.isToldToEnd() || programState().quitFlag)
        dropTracer();
    return true;
}
} // namespace

void endTracing() {
    if (!tracerState().tracer)
        return;
    KernelTracer& tracer = *tracerState().tracer;
    const uint32_t begin = platform().clock->ticks();
    tracer.setBufferCallback([] { return false; });
    tracer.setRestCallback([begin] { return platform().clock->ticks() - begin < restLimit; });
    tracer.setEventCallback(takeEvent);
    tracer.consume();
    dropTracer();
}

uint32_t eventTracer(void* argument) {
    const auto& record = *static_cast<ThreadRecord*>(argument);
    uint32_t result = 0;
    logger().debug(1, "START THREAD %s.", record.name);
    try {
        if (!trace(result))
            return result;
    } catch (const StructuredException& failure) {
        reportException("eventTracer", failure);
    } catch (...) {
        logger().error(RuntallyMessage::tracerNotReading);
    }
    logger().debug(1, "END THREAD " + record.name);
    return result;
}

void processCallback(const TraceEvent& event) {
    if (!programState().quitFlag)
        takeEvent(event);
}

bool addRunningProcesses(int32_t startSeconds) {
    std::vector<uint32_t> ids;
    if (!platform().processes->enumerate(ids))
        return false;
    for (const uint32_t id : ids) {
        if (id == 0)
            continue;
        const ProcessPointer process(new (std::nothrow) Process(id, startSeconds, Process::Mode::running, true));
        if (process.isNull())
            return false;
        process->setState(ProcessState::started);
        if (runtallyState().lastLook != 0)
            process->startNotBefore(DateTime(startSeconds));
        ProcessTracking::logProcess(process);
    }
    return true;
}

} // namespace Velmor
