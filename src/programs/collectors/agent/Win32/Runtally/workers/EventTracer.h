#pragma once

#include "platform/KernelTrace.h"
#include "process/events/KernelTracer.h"
#include "programs/collectors/agent/Win32/Runtally/workers/LossReport.h"
#include "shared/library/common/system/Monopoly.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>

namespace Velmor {

/// What the event tracer shares with the rest of the collector.
struct TracerState {
    std::unique_ptr<KernelTracer> tracer;    // by the tracer's thread while it runs, by the others while no worker does
    LossReport losses;                       // by the tracer's thread; the session and its count outlive one
    std::atomic<bool> hasSession{false};     // from when on no start and no end is missed
    std::atomic<bool> running{false};        // it reads events
    std::atomic<bool> tableReported{false};  // the poller's first full round is over
    std::atomic<bool> isTableWatched{false}; // and the session was there before it
    std::set<uint32_t> ignoredStarts;        // ids of processes that run and are of no interest; under endedMapMonopoly
};

TracerState& tracerState();

/// Gives the session up, if there is one; what it has taken until then is handed over. No tracer's thread runs.
void endTracing();

/// Puts all back to what it is at the program's start. No worker runs.
void resetTracerState();

/// The event tracer's thread; its argument is its `ThreadRecord`. -1 if the collector was quitting when the session had
/// been started, else 0.
uint32_t eventTracer(void* record);

/// Turns one event of a start or an end into news for the registry. Throws nothing.
void processCallback(const TraceEvent& event);

/// Enters all processes that run as started at that second. False if they can't be listed.
bool addRunningProcesses(int32_t startSeconds);

/// Notes that a process is of no interest, so that its end isn't kept as one that came before its start.
void noteIgnoredStart(uint32_t pid);

/// Takes such a note back; true if there was one.
bool takeIgnoredStart(uint32_t pid);

} // namespace Velmor
