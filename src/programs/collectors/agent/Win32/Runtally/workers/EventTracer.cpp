// The thread that gets the system's process events.

#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/RuntallyState.h"
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
constexpr uint32_t restLimit = 1000; // milliseconds that events which wait at the end may take

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

/// The session's question whether to go on. What it was told to hand over is taken, though the program may be told to
/// quit just then.
bool goOn() {
    TracerState& state = tracerState();
    state.isAccepted = programState().quitFlag == 0;
    if (state.isAccepted) {
        state.losses.look();
    } else {
        state.losses.finish();
        state.restBegin = platform().clock->ticks();
    }
    return state.isAccepted;
}

/// The same about what was waiting when the program was told to quit.
bool takeRest() {
    TracerState& state = tracerState();
    state.isAccepted = platform().clock->ticks() - state.restBegin < restLimit;
    return state.isAccepted;
}

/// An end that lies before this start belongs to a process that had the id before; it would cost the new process its
/// records.
void dropStaleStopEvent(const Process& start) {
    ProcessRegistry& registry = runtallyState().registry;
    const MonopolyHold hold(registry.endedMapMonopoly);
    const auto found = registry.endedProcessMap.find(start.pid());
    if (found != registry.endedProcessMap.end() && found->second->getEnd() < start.getStart())
        Runtally::removeProcessFromEndedProcessMap(start.pid());
}

void takeNews(const TraceEvent& event) {
    const ProcessPointer process(new (std::nothrow) Process(event));
    if (process.isNull()) {
        logger().debug(1, "   Failed to create process object.");
        return;
    }
    if (process->getState() == ProcessState::started)
        dropStaleStopEvent(*process);
    Runtally::logProcess(process);
}

/// The poller enters what runs already. Until it has, news would meet a table that is only half entered: a process that
/// it has seen, and whose end is reported before it gets to it, would be entered for good.
void awaitTable() {
    for (uint32_t waited = 0; waited < tableLimit; waited += tableStep) {
        if (!runtallyState().settings.pollingOn || tracerState().tableReported || programState().quitFlag)
            return;
        Timer::sleep(tableStep);
    }
}

/// Ends what was gone when it was to be entered: no event will tell of it.
void endWhatWasGone() {
    Runtally::endGone([](const Process& process) { return process.getExecutable() == Process::lostText; });
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
    tracerState().tracer->setBufferCallback(goOn);
    tracerState().tracer->setRestCallback(takeRest);
    tracerState().tracer->setEventCallback(processCallback);
    return true;
}

/// False if the thread has to end without its end line.
bool trace(uint32_t& result) {
    // What a session that is still there has noted needs no look at the table, which would date it too early.
    const bool isToEnter = !runtallyState().settings.pollingOn && !tracerState().tracer;
    if (isToEnter && !addRunningProcesses(runtallyState().programStart)) {
        logger().debug(1, "eventTracer: addProcess failed.");
        logger().error(RuntallyMessage::tracerNotReading);
    }
    logger().debug(1, "Trying to start Native event tracer...");
    if (!prepareTracer(result))
        return false;
    if (isToEnter)
        endWhatWasGone();
    awaitTable();
    logger().debug(1, "Native event tracer is now running.");
    tracerState().running = true;
    tracerState().tracer->consume();
    tracerState().running = false;
    tracerState().tracer.reset();
    return true;
}
} // namespace

TracerState& tracerState() {
    static TracerState state;
    return state;
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
    const bool isAccepted = std::exchange(tracerState().isAccepted, false);
    if (programState().quitFlag && !isAccepted)
        return;
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
        Runtally::logProcess(process);
    }
    return true;
}

void noteIgnoredStart(uint32_t pid) {
    if (runtallyState().settings.eventsActive != 1)
        return;
    const MonopolyHold hold(runtallyState().registry.endedMapMonopoly);
    tracerState().ignoredStarts.insert(pid);
}

bool takeIgnoredStart(uint32_t pid) {
    const MonopolyHold hold(runtallyState().registry.endedMapMonopoly);
    return tracerState().ignoredStarts.erase(pid) != 0;
}

} // namespace Velmor
