#pragma once

#include "process/events/KernelTracer.h"
#include "programs/collectors/agent/Win32/Runtally/state/LossReport.h"

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

/// Puts all back to what it is at the program's start. No worker runs.
void resetTracerState();

/// Notes that a process is of no interest, so that its end isn't kept as one that came before its start.
void noteIgnoredStart(uint32_t pid);

/// Takes such a note back; true if there was one.
bool takeIgnoredStart(uint32_t pid);

} // namespace Velmor
