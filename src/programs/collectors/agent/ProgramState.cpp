#include "programs/collectors/agent/ProgramState.h"

namespace Velmor {

ProgramState& programState() {
    static ProgramState state;
    return state;
}

} // namespace Velmor
