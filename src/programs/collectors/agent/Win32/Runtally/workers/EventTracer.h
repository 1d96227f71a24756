#pragma once

#include "platform/KernelTrace.h"

#include <cstdint>

namespace Velmor {

/// Gives the session up, if there is one; what it has taken until then is handed over. No tracer's thread runs.
void endTracing();

/// The event tracer's thread; its argument is its `ThreadRecord`. -1 if the collector was quitting when the session had
/// been started, else 0.
uint32_t eventTracer(void* record);

/// Turns one event of a start or an end into news for the registry. Throws nothing.
void processCallback(const TraceEvent& event);

/// Enters all processes that run as started at that second. False if they can't be listed.
bool addRunningProcesses(int32_t startSeconds);

} // namespace Velmor
