#include "programs/collectors/agent/Win32/Runtally/Runtally.h"

#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/Machine.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "platform/ServiceManager.h"
#include "platform/Threads.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/IpcCommands.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr uint32_t stopTime = 1000; // milliseconds that workers have to end
constexpr uint32_t stopStep = 100;
constexpr uint32_t monitorLimit = 3000; // milliseconds that the supervisor has to end
constexpr uint32_t tracerLimit = 30000; // milliseconds that the event tracer has to come up
constexpr uint32_t tracerStep = 100;

const Logger& logger() {
    return runtallyState().logger;
}
} // namespace

Runtally::Runtally(std::string_view commandLine)
    : Agent(commandLine), processStem_("ProcessLog"), moduleStem_("ModuleLog"), performanceStem_("PerfMonLog") {
    setName("Runtally");
    setThreadLostHook(freeLocksOf);
    runtallyState().programStart = platform().clock->now();
}

Runtally::~Runtally() {
    RuntallyState& state = runtallyState();
    logger().debug(1, "Runtally is terminating...");
    stopIPCServer(); // a command that comes now would meet maps that are being cleared
    logger().debug(1, "Clearing process poller data...");
    state.procPoll.clear();
    logger().debug(1, "   Process poller data cleared.");
    logger().debug(1, "Clearing data (%i process(es))...", state.registry.processMap.size());
    state.pollChanges.clear();
    state.registry.clear();
    logger().debug(1, "   Cleared process data.");
    state.exeFinder.reset();
    logger().debug(1, "Destroyed ExeFinder.");
    if (tracerState().tracer) {
        tracerState().tracer.reset();
        logger().debug(1, "Destroyed kernel tracer object.");
    }
    logger().debug(1, "Runtally ended.");
    state.logger.release();
}

std::string Runtally::statusSentence() {
    return sentenceOf(status());
}

StatusReport Runtally::status() const {
    return takeStatus(configuration_, missingRights_);
}

bool Runtally::reconfigure() {
    const std::vector<IPCMessage> requests = commands_.takeReconfigurations();
    const bool runs = Agent::reconfigure();
    commands_.answerReconfigurations(requests, toJson(status(), programState().refusal));
    return runs;
}

void Runtally::publishFigures() {
    if (const std::string& path = runtallyState().settings.metricsFile; !path.empty())
        metrics_.replace(path, toMetrics(status()));
}

void Runtally::run() {
    const std::string ids = "pid=" + std::to_string(platform().machine->processId()) +
                            ";tid=" + std::to_string(platform().threads->currentId());
    setResourceValue("JOB_Runtally", ids);
    handleLeftovers();
    missingRights_ = platform().machine->missingRights();
    commands_.setStatusSource([this] { return toJson(status()); });
    if (!startIPCServer(FamilyName::collector, commands_))
        return;
    enableDebugPrivilege();
    if (!startThreads() || !startStatusMonitor()) {
        stopAndVerify(); // the others have started
        return;
    }
    platform().serviceManager->ready(statusSentence());
    runMessageLoop();
    logger().debug(1, "Runtally main loop has exited.");
    platform().serviceManager->stopping();
    awaitStatusMonitor(); // it may be changing the list of the workers
    awaitThreads(0);      // the tracer takes what has happened until now
    stopThreads();
    const uint32_t begin = platform().clock->ticks();
    Timer::waitUntil(stopTime, stopStep, [&] { return platform().clock->ticks() - begin >= stopTime; });
    awaitThreads(ThreadRecord::takesPart);
    verifyStoppedThreads();
    deliverAll(true);
    Process::tellUnknownCodes(true);
    logger().debug(1, "Runtally main control has ended.");
}

void Runtally::enableDebugPrivilege() {
    logger().debug(1, "Enabling debug privileges...");
    std::string failedCall;
    uint32_t error = NativeError::success;
    if (platform().machine->enableDebugPrivilege(failedCall, error))
        logger().debug(1, "Debug privileges enabled.");
    else
        logger().error(RuntallyMessage::noDebugPrivilege, failedCall, error);
    if (!missingRights_.empty())
        logger().notice(RuntallyMessage::rightsMissing, missingRights_);
}

bool Runtally::startStatusMonitor() {
    logger().debug(1, "Creating statusMonitor thread");
    uint32_t error = NativeError::success;
    statusMonitor_ = platform().threads->create(statusMonitor, static_cast<Agent*>(this), statusMonitorId_, error);
    if (!statusMonitor_) {
        logger().debug(3, "Failed to create statusMonitor.");
        return false;
    }
    logger().debug(5, "Created statusMonitor.");
    logger().notice(RuntallyMessage::started);
    return true;
}

void Runtally::runMessageLoop() {
    logger().debug(1, "START MAIN LOOP");
    uint32_t message = 0;
    while (platform().messageQueues->wait(message)) {
        if (message == WindowMessage::close || message == WindowMessage::destroy || message == WindowMessage::quit) {
            programState().quitFlag = 1;
            logger().debug(5, "Main loop: Got Windows message to shut down.");
            return;
        }
        if (message == WindowMessage::settingChange)
            programState().reconfigureFlag = 1;
        if (programState().quitFlag)
            return;
    }
}

/// With events the workers are up when the tracer reads them.
void Runtally::awaitWorkers() {
    if (runtallyState().settings.eventsActive != 1) {
        Agent::awaitWorkers();
        return;
    }
    Timer::waitUntil(tracerLimit, tracerStep, [] { return tracerState().running || programState().quitFlag != 0; });
}

void Runtally::supervisionRound() {
    retryPendingInfo();
    Process::tellUnknownCodes(false);
}

bool Runtally::isInUse() const {
    uint32_t code = 0;
    uint32_t error = 0;
    const bool isSupervised =
        statusMonitor_ && platform().threads->exitCode(statusMonitor_, code, error) && code == stillActive;
    return isSupervised || hasRunningThread();
}

/// The supervisor works on this object: it must have ended before the object goes.
void Runtally::awaitStatusMonitor() {
    programState().quitFlag = 1;
    uint32_t code = stillActive;
    uint32_t error = NativeError::success;
    if (Timer::waitUntil(monitorLimit, stopStep, [&] {
            return !platform().threads->exitCode(statusMonitor_, code, error) || code != stillActive;
        }))
        return;
    if (isReconfiguring())
        logger().warning(RuntallyMessage::reconfigurationBrokenOff);
    platform().threads->terminate(statusMonitor_, 0, error);
    freeLocksOf(statusMonitorId_);
}

} // namespace Velmor
