#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"

#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

namespace Velmor {

TracerState& tracerState() {
    static TracerState state;
    return state;
}

void resetTracerState() {
    TracerState& state = tracerState();
    state.tracer.reset();
    state.losses = {};
    state.hasSession = state.running = state.tableReported = state.isTableWatched = false;
    state.ignoredStarts.clear();
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
