// The thread that supervises the workers.

#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "platform/ServiceManager.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
const TimeSpan passTime(60);
constexpr uint32_t roundPause = 500; // milliseconds
constexpr uint32_t startPause = 5000;
constexpr uint32_t startStep = 100;

void supervise(Agent& agent) {
    DateTime nextCheck = DateTime() + passTime;
    while (!programState().quitFlag) {
        if (programState().reconfigureFlag)
            agent.reconfigure();
        const DateTime now;
        const bool wasSetBack = now + passTime < nextCheck;
        if (nextCheck < now || wasSetBack) {
            nextCheck = now + passTime;
            platform().serviceManager->alive(agent.statusSentence());
            agent.publishFigures();
            agentLogger().debug(5, "statusMonitor is running as normal.");
            if (!agent.checkThreads()) {
                agentLogger().debug(1, "statusMonitor is exiting due to failed threads.");
                programState().quitFlag = 1;
                return;
            }
        }
        agent.supervisionRound();
        agent.forwardWaiting();
        Timer::sleep(roundPause);
    }
}
} // namespace

void Agent::awaitWorkers() {
    Timer::waitUntil(startPause, startStep, [] { return programState().quitFlag != 0; });
}

uint32_t statusMonitor(void* argument) {
    auto& agent = *static_cast<Agent*>(argument);
    agentLogger().debug(1, "START THREAD statusMonitor.");
    agent.awaitWorkers();
    try {
        agent.publishFigures();
        supervise(agent);
    } catch (...) {
        agentLogger().debug(1, "ERROR while running statusMonitor");
    }
    agentLogger().debug(1, "END THREAD statusMonitor.");
    programState().quitFlag = 1;
    platform().messageQueues->post(programState().mainThreadId, WindowMessage::quit);
    return 0;
}

} // namespace Velmor
