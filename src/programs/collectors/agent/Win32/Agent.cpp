#include "programs/collectors/agent/Win32/Agent.h"

#include "platform/Errors.h"
#include "platform/Mailslots.h"
#include "platform/Platform.h"
#include "platform/Registry.h"
#include "platform/ServiceManager.h"
#include "platform/Threads.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "rules/PrimeTime.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/errors/JobException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/LossBook.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <utility>

namespace Velmor {

namespace {
constexpr size_t catalogueGenerations = 2;
constexpr size_t mostFindings = 20; // that are told one by one
} // namespace

Agent::Agent(std::string_view commandLine) : arguments_(parseCommandLine(commandLine)) {
    if (!arguments_.empty())
        arguments_.erase(arguments_.begin()); // the program's own word
    if (arguments_.empty() || arguments_.front().first != "c")
        return;
    configurationFile_ = arguments_.front().second; // for the whole life, reconfigurations too
    arguments_.erase(arguments_.begin());
}

Agent::~Agent() {
    stopIPCServer();
    logFileRegistry().clear();
    instanceGuard_.relax();
    agentLogger().destroy();
    LogMessenger::setCatalogue(nullptr);
    loggerContext_.conf.destroy();
    loggerContext_.logger.destroy();
    loggerContext_.messenger.destroy();
    loggerContext_.centre.destroy();
}

std::string Agent::lowerName() const {
    return toLowerCopy(name_);
}

bool Agent::fail(const std::string& causeAndRemedy) {
    std::string& failure = programState().startupFailure;
    if (failure.empty()) // the first cause is the one to mend
        failure = causeAndRemedy;
    return false;
}

bool Agent::configure() {
    programState().startupFailure.clear();
    std::string directory;
    if (!startOwnLogging() || !takeInstanceGuard())
        return false;
    if (loggerContext_.conf.isNull())
        loggerContext_.conf = SmartPointer<ConfReader>(new ConfReader(loggerContext_.centre));
    if (!agentLogger().isSet())
        agentLogger().set(SmartPointer<LoggerUnit>(new LoggerUnit(loggerContext_.centre, LogModule::agent)));
    if (!readConfigurationDirectory(directory))
        return false;
    loadConfiguration(directory);
    loadLogMessages();
    configureLogging(loggerContext_);
    int32_t level = 0;
    if (conf().getInteger(lowerName() + ".log.debug-level", level) == 0)
        LoggerUnit::setDebugLevel(level);
    if (!isReconfiguring_) // else they have been told before the workers were stopped
        tellFindings(check(false));
    if (!loadPrimeTime(directory))
        return false;
    readStaticInfo();
    if (programState().mainThreadId == 0)
        programState().mainThreadId = platform().threads->currentId();
    if (!prepareDataDelivery())
        return fail("The data delivery thread can't be prepared; see the debug log.");
    if (conf().getDirName("Velmor.directories.temp", programState().tempDirectory) != 0)
        return fail("The key \"Velmor.directories.temp\" is missing in the configuration file; add it as a DirName.");
    if (!configureCollector())
        return false;
    agentLogger().debug(1, "Finished configuring.");
    return true;
}

bool Agent::startOwnLogging() {
    std::string cause;
    if (!platform().registry->isReadable(cause))
        return fail(cause);
    if (getResourceValue(name_ + "DebugLog", loggerContext_.debugLogName) != 0)
        loggerContext_.debugLogName = name_ + "Debug.log";
    loggerContext_.programId = LogCommons::programFromName(name_);
    if (loggerContext_.programId == LogProgram::unknown)
        return fail("\"" + name_ + "\" isn't a program of the family.");
    loggerContext_.moduleId = LogCommons::moduleFromName(name_);
    if (loggerContext_.moduleId == LogModule::unknown)
        return fail("\"" + name_ + "\" isn't a module of the family.");
    return startLogging(loggerContext_) || fail("Logging can't be started.");
}

bool Agent::takeInstanceGuard() {
    if (instanceGuard_.isEnforced())
        return true;
    instanceGuard_.setName(name_);
    if (instanceGuard_.enforce())
        return true;
    if (const uint32_t error = instanceGuard_.getLastError(); error != NativeError::alreadyExists)
        return fail("The lock that keeps a second " + name_ + " out can't be taken (" +
                    platform().mailslots->errorText(error) +
                    "); make the runtime directory, by default /run/velmor, writable, or set VELMOR_RUNTIME_DIR.");
    Logger logger;
    logger.set(loggerContext_.logger);
    logger.fatal(RuntallyMessage::notAsAsked, name_);
    return fail("Another " + name_ + " runs on this machine already; end it before starting a second one.");
}

bool Agent::readConfigurationDirectory(std::string& directory) {
    if (getResourceValue("ConfigurationDir", directory) != 0) {
        agentLogger().debug(1, "Could not get configuration dir from system.");
        return fail("The value ConfigurationDir is missing among the family's values; set it to the directory of the "
                    "configuration files.");
    }
    FileUtils::normalisePath(directory);
    FileUtils::addSeparator(directory);
    return true;
}

std::string Agent::configurationFile(const std::string& directory) const {
    return configurationFile_.empty() ? directory + lowerName() + ".conf" : configurationFile_;
}

void Agent::loadConfiguration(const std::string& directory) {
    loggerContext_.conf->buildDOMTree(configurationFile(directory));
    // What was read before the mistake is in force; without the keys that must be there the start-up fails by them.
    const std::string problem = loggerContext_.conf->getLastError();
    if (!problem.empty())
        agentLogger().debug(0, problem);
    programState().startupFailure = problem;
}

void Agent::loadLogMessages() {
    agentLogger().debug(1, "Loading log messages...");
    std::string directory;
    if (conf().getDirName("Velmor.directories.conf", directory) != 0) {
        agentLogger().error(AgentMessage::keyMissing, "Velmor.directories.conf");
        return;
    }
    LogCommons& messages = logMessages_.emplace_back();
    const LoadResult result = messages.loadMessages(
        directory, toLowerCopy(LogCommons::moduleName(loggerContext_.moduleId)) + ",configuration,agent");
    for (size_t i = 0; i < result.loaded.size(); ++i)
        agentLogger().debug(2, "Loaded %i messages for module \"%s\".", result.counts[i], result.loaded[i]);
    if (result.loaded.empty())
        agentLogger().debug(1, "No log messages were loaded.");
    for (const std::string& name : result.rejected)
        agentLogger().debug(2, "Messages for module \"%s\" were rejected.", name);
    if (!result.ok)
        agentLogger().error(AgentMessage::catalogueUnreadable, result.error);
    LogMessenger::setCatalogue(&messages);
    if (logMessages_.size() > catalogueGenerations)
        logMessages_.pop_front();
}

/// A start goes on with what it could read; so whatever the findings cost, they are warnings here.
void Agent::tellFindings(const Findings& findings) {
    const std::vector<Finding> list = findings.sorted();
    for (size_t i = 0; i < std::min(list.size(), mostFindings); ++i)
        agentLogger().warning(AgentMessage::configurationFinding, findingLine(list[i]));
    if (list.size() > mostFindings)
        agentLogger().warning(AgentMessage::furtherFindings, std::to_string(list.size() - mostFindings));
}

std::string Agent::primeTimeFile(const ConfReader& configuration, const std::string& directory) const {
    std::string file = directory + "primetime";
    configuration.getFileName(lowerName() + ".primetime-file", file);
    FileUtils::normalisePath(file);
    return file;
}

bool Agent::loadPrimeTime(const std::string& directory) {
    const std::string file = primeTimeFile(conf(), directory);
    if (!FileOps::exists(file)) {
        primeTimeCalendar().clear();
        return true;
    }
    if (primeTimeCalendar().readFile(file))
        return true;
    agentLogger().fatal(AgentMessage::primeTimeUnreadable, "GENERAL");
    return fail("The prime time file \"" + file + "\" can't be read; make it readable, or remove it.");
}

void Agent::readStaticInfo() {
    StaticInfo info = programState().staticInfo;
    try {
        getStaticInfo(info.domain, info.computerName, info.architecture, info.osName);
    } catch (...) {
        agentLogger().debug(
            3, "Agent::configure: Exception occured in getStaticInfo. Check status of Workstation service.");
    }
    programState().staticInfo = info;
}

bool Agent::reconfigure() {
    programState().reconfigureFlag = 0;
    programState().refusal.clear();
    platform().serviceManager->reloading();
    isReconfiguring_ = true;
    const bool runs = restartWorkers();
    isReconfiguring_ = false;
    platform().serviceManager->ready(statusSentence());
    publishFigures();
    return runs;
}

/// A mistake is told while all goes on as before.
bool Agent::isConfigurationUsable() {
    std::string directory;
    std::string problem;
    if (!platform().registry->isReadable(problem))
        return refuse(problem);
    programState().startupFailure.clear();
    if (!readConfigurationDirectory(directory))
        return refuse(programState().startupFailure);
    ConfReader fresh(loggerContext_.centre);
    fresh.buildDOMTree(configurationFile(directory));
    problem = fresh.getLastError();
    if (!problem.empty() || !acceptsConfiguration(fresh, problem))
        return refuse(problem);
    const Findings findings = check(false);
    tellFindings(findings);
    if (findings.hasErrors()) {
        const std::vector<Finding> list = findings.sorted();
        return refuse(findingLine(
            *std::find_if(list.begin(), list.end(), [](const Finding& finding) { return finding.isError; })));
    }
    isJudgedOtherwise_ = judgesOtherwise(fresh);
    isSliceDue_ = true;
    return true;
}

/// Says why a new configuration isn't in force. Always false.
bool Agent::refuse(const std::string& problem) {
    programState().refusal = problem;
    agentLogger().error(AgentMessage::configurationRefused, problem);
    agentLogger().debug(0, problem);
    return false;
}

bool Agent::restartWorkers() {
    const MonopolyHold hold(programState().deliveryMonopoly);
    if (!isConfigurationUsable() || !stopAndVerify() || programState().quitFlag)
        return false;
    threads_.clear();
    if (configureAgain())
        return startThreads();
    threads_.clear(); // what was prepared before the failure must not be taken for a worker that died
    return refuse(programState().startupFailure);
}

/// What is in force judges what has been until now. The former data files stay until all is ready: if the new
/// configuration fails, or the program has to end meanwhile, what runs has seconds to be written.
bool Agent::configureAgain() {
    if (isJudgedOtherwise_)
        sliceBeforeChange();
    for (const auto& [key, entry] : logFileRegistry())
        releaseLogFile(key);
    NewLogFiles files;
    if (!configure())
        return false;
    files.putInForce();
    return true;
}

void Agent::sliceBeforeChange() {
    if (!std::exchange(isSliceDue_, false))
        return;
    for (const auto& [key, entry] : logFileRegistry())
        if (entry.beforeDelivery)
            entry.beforeDelivery();
}

void Agent::forwardWaiting() {
    if (loggerContext_.messenger.isNull())
        return;
    const uint64_t lost = loggerContext_.messenger->sendWaiting();
    if (lost == 0)
        return;
    lossBook().add(LossBook::Cause::messages, lost);
    agentLogger().warning(AgentMessage::messagesFellOut, std::to_string(lost));
}

bool Agent::startIPCServer(std::string_view name, IPCListener& told) {
    try {
        ipcServer_ = SmartPointer<IPCServer>(new IPCServer(name, loggerContext_.centre, told));
        return !ipcServer_.isNull();
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        agentLogger().fatal(AgentMessage::listenerNotStarted, failure.getCodeText());
        agentLogger().debug(1, failure.getDescription());
    } catch (JobException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        agentLogger().fatal(AgentMessage::listenerNotStarted, failure.getCodeText());
        agentLogger().debug(1, failure.getDescription());
    } catch (...) { // NOLINT(bugprone-empty-catch): the caller is told
    }
    return false;
}

void Agent::stopIPCServer() {
    if (!ipcServer_.isNull())
        ipcServer_->stop();
    ipcServer_.destroy();
}

bool Agent::prepareDataDelivery() {
    agentLogger().debug(2, "Preparing data delivery thread...");
    if (!prepareThread("DataDelivery", ThreadRecord::takesPart, dataDelivery)) {
        agentLogger().critical(AgentMessage::notPrepared, "prepare data delivery");
        return false;
    }
    agentLogger().debug(3, "   Done.");
    return true;
}

} // namespace Velmor
