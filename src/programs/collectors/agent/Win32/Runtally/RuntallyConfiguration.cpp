// The collector's own part of the configuration.

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "process/naming/ApplicationMappings.h"
#include "process/naming/SMScan.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/ConfigurationFiles.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/check/ConfigurationCheck.h"
#include "programs/collectors/agent/Win32/Runtally/records/PerformanceRecord.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/SourceChange.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"

#include <functional>
#include <limits>
#include <utility>

namespace Velmor {

namespace {
constexpr int32_t defaultDelivery = 43200;           // seconds
constexpr int32_t defaultPerformanceDelivery = 3600; // seconds
constexpr int32_t defaultPoll = 300;                 // seconds
constexpr int32_t defaultPerformancePoll = 5;        // seconds
constexpr int32_t forcedPoll = 10;                   // seconds, on systems without an event trace
constexpr int32_t defaultEventLogDays = 7;

/// Whether the system is of the old line that has no trace of process events; other names may hold its letters.
bool hasNoTrace(std::string_view osName) {
    return osName.starts_with("Windows NT") || osName.starts_with("NT");
}

RuntallySettings& settings() {
    return runtallyState().settings;
}

const Logger& logger() {
    return runtallyState().logger;
}

std::string configurationDirectory() {
    std::string directory;
    getResourceValue("ConfigurationDir", directory);
    return directory;
}

/// The rules that a configuration names; none if it names no file. False with the file and what is wrong.
bool readRules(const ConfReader& conf, IncludeExclude& rules, std::string& file, std::string& error) {
    file = ConfigurationFiles(conf).rules;
    return file.empty() || rules.load(file, error);
}

std::string ruleProblem(const std::string& file, const std::string& error) {
    return "The rule file \"" + shownPath(file) + "\" can't be loaded (" + error + "); correct it.";
}
} // namespace

bool Runtally::configureCollector() {
    RuntallyState& state = runtallyState();
    state.logger.set(loggerContext().logger);
    Process::setLogger(loggerContext().logger);
    state.procPoll.setLogger(loggerContext().logger);
    SMScan::setLogger(loggerContext().logger);
    LoggerUnit::setShowThreadId(true);
    if (!prepareDirectories())
        return false;
    readIntervals();
    readPolling();
    readEventLog();
    readModules();
    readEvents();
    readPerformance();
    readMetrics();
    if (!prepareExeFinder())
        return fail("The executable finder can't be made; see the debug log.");
    if (!loadRules() || !prepareThreads())
        return false;
    registerDataFiles();
    if (!settings().hasSource()) {
        sliceBeforeChange();
        giveTrackedUp();
    }
    if (const size_t former = std::exchange(judgement_, judgement(conf())); former != judgement_)
        renewTracked();
    noteConfiguration();
    return true;
}

/// What is in force from now on, for those who ask and for those who audit.
void Runtally::noteConfiguration() {
    std::string directory;
    readConfigurationDirectory(directory);
    const ConfigurationFiles files(conf());
    std::vector<std::string> paths{configurationFile(directory), files.rules, primeTimeFile(conf(), directory),
                                   files.mappings};
    if (settings().moduleLogging)
        paths.push_back(files.filter);
    if (settings().performanceMonitoring)
        paths.insert(paths.end(), {files.counters, files.performanceRules});
    configuration_ = describeConfiguration(paths, runtallyState().includeExclude.count());
    logger().notice(RuntallyMessage::configurationInForce, configuration_.hash,
                    std::to_string(configuration_.files.size()), configuration_.file(),
                    std::to_string(configuration_.rules));
}

/// A number for all that decides what records say and whether they are wanted: the keys of it and the files' contents.
size_t Runtally::judgement(const ConfReader& configuration) const {
    std::string text;
    const auto addFile = [&](const std::string& name) {
        text += name + '\n';
        try {
            FilePlain file(name);
            file.open(FileBase::ACCESS_READ);
            while (!file.eof()) {
                std::string line;
                file.readLine(line);
                text += line + '\n';
            }
        } catch (const FileException&) {
            text += '!';
        }
    };
    for (const char* key : {"runtally.logging.module-data", "runtally.logging.performance-monitor"}) {
        bool value = false;
        text += std::to_string(configuration.getBool(key, value)) + (value ? "+" : "-");
    }
    const ConfigurationFiles files(configuration);
    addFile(primeTimeFile(configuration, configurationDirectory() + "\\"));
    for (const std::string& file : {files.rules, files.filter, files.counters, files.performanceRules, files.mappings})
        addFile(file);
    return std::hash<std::string>()(text);
}

bool Runtally::prepareDirectories() {
    std::string& directory = programState().dataDirectory;
    directory = dataDirectoryOf(conf());
    logger().debug(4, "Working dir: %s.", directory);
    if (FileUtils::makeDirectories(directory))
        return true;
    logger().fatal(RuntallyMessage::noWorkingDirectory, directory);
    return fail("The working directory \"" + directory +
                "\" can't be made; make the directory that it lies in writable, or set runtally.working-dir.");
}

/// Reads an interval, and says which one is in force.
void Runtally::readInterval(std::string_view key, TimeSpan& span, const TimeSpan& otherwise) const {
    if (intervalOf(conf(), key, span)) {
        logger().debug(1, "   Poll interval is %s.", span.toString());
        return;
    }
    span = otherwise;
    logger().debug(1, "   No poll interval found. Will be using default interval %s.", span.toString());
}

void Runtally::readIntervals() {
    TimeSpan& delivery = programState().defaultInterval;
    if (!intervalOf(conf(), "runtally.interval", delivery))
        delivery = TimeSpan(defaultDelivery);
    logger().debug(4, "Data delivery at interval: %s.", delivery.toString());
    TimeSpan& performance = settings().performanceDeliveryInterval;
    if (!intervalOf(conf(), "runtally.interval.performance-monitor", performance))
        performance = TimeSpan(defaultPerformanceDelivery);
}

void Runtally::readMetrics() {
    settings().metricsFile.clear();
    conf().getFileName("runtally.metrics-file", settings().metricsFile);
}

/// Reads a boolean; without its key it stays as an earlier configuration has left it, which is told.
bool Runtally::readSwitch(std::string_view key, bool& value) const {
    if (conf().getBool(key, value) != ConfReader::FOUND && value)
        logger().notice(RuntallyMessage::valueKept, key);
    return value;
}

void Runtally::readPolling() {
    if (!readSwitch("runtally.logging.process-data.polling", settings().pollingOn))
        return;
    logger().debug(1, "Will be polling process table...");
    readInterval("runtally.logging.process-data.polling.interval", settings().pollInterval, TimeSpan(defaultPoll));
}

void Runtally::readEventLog() {
    if (!readSwitch("runtally.logging.process-data.log-to-file", settings().eventLogOn))
        return;
    settings().eventLogStem = "procevents";
    settings().eventLogDays = defaultEventLogDays;
    conf().getInteger("runtally.logging.process-data.log-to-file.delete-after-days", settings().eventLogDays);
    FileUtils::makeDirectories(programState().tempDirectory);
}

void Runtally::readModules() {
    if (!readSwitch("runtally.logging.module-data", settings().moduleLogging))
        return;
    logger().debug(1, "Will be polling process modules...");
    readInterval("runtally.logging.module-data.interval", settings().modulePollInterval, TimeSpan());
    settings().moduleFilterFile = ConfigurationFiles(conf()).filter;
}

void Runtally::readEvents() {
    const bool wereActive = settings().eventsActive == 1;
    settings().eventsActive = 0;
    chooseEvents();
    leaveSources(wereActive);
}

void Runtally::chooseEvents() {
    if (!readSwitch("runtally.logging.process-data.events", settings().eventsAskedFor))
        return;
    logger().debug(1, "Will be using process events...");
    if (hasNoTrace(programState().staticInfo.osName)) {
        logger().warning(RuntallyMessage::notAsAsked);
        settings().pollingOn = true;
        if (settings().pollInterval.getSeconds() > forcedPoll)
            settings().pollInterval = TimeSpan(forcedPoll);
        return;
    }
    if (!readSwitch("runtally.logging.process-data.events.native", settings().nativeEvents))
        return;
    logger().debug(1, "   Will be using native W2K/XP event logger.");
    settings().eventsActive = 1;
}

void Runtally::readPerformance() {
    if (!readSwitch("runtally.logging.performance-monitor", settings().performanceMonitoring))
        return;
    logger().debug(1, "Will be monitoring performance...");
    readInterval("runtally.logging.performance-monitor.interval", settings().performancePollInterval,
                 TimeSpan(defaultPerformancePoll));
    const ConfigurationFiles files(conf());
    settings().countersFile = files.counters;
    settings().performanceRulesFile = files.performanceRules;
}

bool Runtally::prepareExeFinder() {
    std::unique_ptr<ExeFinder>& finder = runtallyState().exeFinder;
    if (finder) {
        loadApplicationMappings(); // which may have changed
        finder->forget();
        return true;
    }
    logger().debug(1, "Creating ExeFinder...");
    finder.reset(new (std::nothrow) ExeFinder(loggerContext().logger));
    if (!finder) {
        logger().fatal(RuntallyMessage::noExeFinder);
        return false;
    }
    loadApplicationMappings();
    logger().debug(1, "ExeFinder created.");
    return true;
}

void Runtally::loadApplicationMappings() {
    logger().debug(1, "Loading application mappings...");
    const std::string name = ConfigurationFiles(conf()).mappings;
    if (name.empty()) {
        logger().debug(1, "Unable to get configuration dir. Cannot load mappings.");
        return;
    }
    if (!FileOps::exists(name)) {
        logger().debug(1, "File \"%s\" does not exist. Cannot load mappings.", name);
        runtallyState().exeFinder->setMappings({});
        return;
    }
    try {
        ApplicationMappingsReader reader;
        if (const int32_t mistake = reader.readFile(name); mistake > 0) {
            logger().error(RuntallyMessage::mappingsMistake, mistake, "Illegal '{'.");
            return;
        }
        runtallyState().exeFinder->setMappings(reader.mappings());
        logger().debug(1, "Application mappings loaded.");
    } catch (const FileException& failure) {
        std::string shortText;
        failure.describe(shortText);
        logger().debug(1, failure.getFullDescription());
        logger().error(RuntallyMessage::mappingsUnreadable, name, shortText);
    } catch (const std::bad_alloc&) {
        logger().critical(RuntallyMessage::noMemory, "load application mappings");
    } catch (...) {
        logger().error(RuntallyMessage::mappingsUnreadable, name, "Unknown");
    }
}

bool Runtally::acceptsConfiguration(const ConfReader& fresh, std::string& problem) const {
    IncludeExclude rules;
    std::string file;
    std::string error;
    if (readRules(fresh, rules, file, error))
        return true;
    problem = ruleProblem(file, error);
    return false;
}

Findings Runtally::check(bool withRights) const {
    ConfigurationCheck check({settings().pollingOn, settings().eventsAskedFor, settings().nativeEvents});
    std::string directory;
    if (check.checkResources() && readConfigurationDirectory(directory)) {
        check.checkConfiguration(configurationFile(directory), directory);
        if (withRights)
            check.checkRights();
    }
    return check.findings();
}

/// Rules that can't be loaded leave the former ones.
bool Runtally::loadRules() {
    IncludeExclude rules;
    std::string file;
    std::string error;
    if (readRules(conf(), rules, file, error)) {
        runtallyState().includeExclude.take(rules);
        return true;
    }
    logger().fatal(RuntallyMessage::rulesUnusable, file, error);
    return fail(ruleProblem(file, error));
}

void Runtally::registerDataFiles() {
    const std::string& directory = programState().dataDirectory;
    registerLogFile(directory + processStem_, "process", TimeSpan(), false, dumpAll);
    if (settings().moduleLogging)
        registerLogFile(directory + moduleStem_, "module", TimeSpan(), false, nullptr);
    if (settings().performanceMonitoring)
        registerLogFile(directory + performanceStem_, "perfmon", settings().performanceDeliveryInterval, true,
                        dumpPerfMon);
}

} // namespace Velmor
