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
    std::unique_ptr<KernelTracer> tracer;   // by the tracer's thread while it runs, by the main thread afterwards
    std::atomic<bool> running{false};       // it reads events
    std::atomic<bool> tableReported{false}; // the poller's first full round is over
    LossReport losses;                      // this and the next two by the tracer's thread
    bool isAccepted = false;                // the session may hand the next event over, quitting or not
    uint32_t restBegin = 0;                 // ticks, when it was told to stop
    std::set<uint32_t> ignoredStarts;       // ids of processes that run and are of no interest; under endedMapMonopoly
};

TracerState& tracerState();

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
