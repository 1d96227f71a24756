#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"

#include <memory>

namespace Velmor {

RuntallyState& runtallyState() {
    static RuntallyState state;
    return state;
}

void resetRuntallyState() {
    RuntallyState& state = runtallyState();
    std::destroy_at(&state.settings); // its atomic word can't be assigned
    std::construct_at(&state.settings);
    state.registry.clear();
    state.includeExclude.clear();
    state.processRules.clear();
    state.moduleFilter.clear();
    state.performance = {};
    state.procPoll.forget();
    state.pollChanges.clear();
    state.exeFinder.reset();
    state.isShortOfHandles = false;
    state.polledOnce = false;
    state.eventsDropped = false;
    state.programStart = 0;
    state.lastLook = 0;
    resetTracerState();
    logFileRegistry().clear();
}

} // namespace Velmor
