#include "programs/collectors/agent/AgentLogger.h"

namespace Velmor {

Logger& agentLogger() {
    static Logger logger;
    return logger;
}

} // namespace Velmor
