#include "programs/collectors/agent/Win32/Runtally/workers/SourceChange.h"

#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"

namespace Velmor {

void leaveSources(bool eventsWereActive) {
    RuntallyState& state = runtallyState();
    const bool hasEvents = state.settings.eventsActive == 1;
    if (!hasEvents)
        endTracing();
    state.eventsDropped = !hasEvents && (eventsWereActive || state.eventsDropped); // a new tracer finds what has ended
    if (hasEvents || !state.settings.pollingOn)
        state.procPoll.forget(); // it holds handles, and what it knows gets old
    // A new session begins with a look of its own, which finds what a poll has left unreported.
    if ((hasEvents && !eventsWereActive) || !state.settings.pollingOn)
        state.pollChanges.clear();
}

} // namespace Velmor
