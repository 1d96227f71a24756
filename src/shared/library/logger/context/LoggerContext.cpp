#include "shared/library/logger/context/LoggerContext.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/LoggerAgentFile.h"
#include "shared/library/logger/context/LogMessengerIPC.h"

#include <limits>

namespace Velmor {

namespace {
constexpr int32_t timeModeLocal = 1;
constexpr int32_t timeModeZulu = 2;
constexpr size_t anyNumber = std::numeric_limits<size_t>::max();

/// Goes through a comma-separated list of rotation words from the left.
void addSchemeWords(const std::string& words) {
    std::vector<std::string> list;
    split(words, ',', list, anyNumber);
    for (const std::string& word : list) {
        if (word == "none")
            LoggerAgentFile::setScheme(0);
        else if (word == "init")
            LoggerAgentFile::addScheme(LoggerAgentFile::schemeInit);
        else if (word == "time")
            LoggerAgentFile::addScheme(LoggerAgentFile::schemeTime);
        else if (word == "size")
            LoggerAgentFile::addScheme(LoggerAgentFile::schemeSize);
    }
}

/// From the second character on every run of separators becomes one, and one stands at the end.
void normaliseDirectory(std::string& directory) {
    FileUtils::normalisePath(directory);
    FileUtils::addSeparator(directory);
}

void moveDebugFile(LoggerContext& context) {
    std::string directory;
    if (context.conf.isNull() || context.conf->getDirName("Velmor.directories.log", directory) != 0)
        return;
    if (!FileUtils::makeDirectories(directory))
        return;
    context.debugLogName = directory + FileUtils::getBaseName(context.debugLogName);
    if (!context.messenger.isNull())
        context.messenger->setFile(context.debugLogName);
}

void configureTimeMode(const ConfReader& conf) {
    std::string word = "local";
    conf.getString("log.time", word, true, false);
    LoggerUnit::setTimeMode(word == "local" ? timeModeLocal : (word == "zulu" ? timeModeZulu : 0));
}

void configureRotation(const ConfReader& conf) {
    const bool hadInit = (LoggerAgentFile::getScheme() & LoggerAgentFile::schemeInit) != 0;
    std::string scheme;
    if (conf.getString("log.rotation.scheme", scheme, true, true) == 0) {
        LoggerAgentFile::setScheme(0);
        addSchemeWords(scheme);
    }
    TimeSpanParts period{};
    const bool hasPeriod = conf.getTimeSpan("log.rotation.time", period) == 0;
    LoggerAgentFile::setPeriod(hasPeriod ? TimeSpan(period) : TimeSpan());
    int32_t size = 0;
    conf.getInteger("log.rotation.size", size);
    LoggerAgentFile::setSizeLimit(static_cast<uint32_t>(size));
    if (!hadInit && (LoggerAgentFile::getScheme() & LoggerAgentFile::schemeInit))
        LoggerAgentFile::requestRotation();
}

void configureLevels(const ConfReader& conf) {
    std::string severity;
    if (conf.getString("log.global.severity", severity, true, false) != 0)
        LoggerUnit::setSeverityLevel(Severity::notice);
    else
        LoggerUnit::setSeverityLevel(LogCommons::severityFromName(severity)); // an unknown name leaves it alone
    int32_t level = 0;
    conf.getInteger("log.global.debug-level", level);
    LoggerUnit::setDebugLevel(level);
}
} // namespace

bool startLogging(LoggerContext& context) {
    if (!context.logger.isNull())
        return configureLogging(context);
    LoggerAgentFile::setProgramName(LogCommons::programName(context.programId));
    std::string directory;
    if (context.logDirectory.empty() && getResourceValue("StartupLogDir", directory) == 0)
        context.logDirectory = directory;
    normaliseDirectory(context.logDirectory);
    int32_t level = 0;
    if (getResourceNumber("StartupDebugLevel", level) != 0)
        level = 0;
    LoggerUnit::setDebugLevel(level);
    std::string scheme;
    if (getResourceValue("LogFileRotationScheme", scheme) == 0)
        addSchemeWords(scheme);
    context.messenger = SmartPointer<LogMessenger>(new LogMessengerIPC());
    context.messenger->setFile(context.logDirectory + context.debugLogName);
    context.centre = SmartPointer<LoggerCentre>(new LoggerCentre(context.programId, context.messenger));
    context.logger = SmartPointer<LoggerUnit>(new LoggerUnit(context.centre, context.moduleId));
    return !context.logger.isNull();
}

bool configureLogging(LoggerContext& context) {
    if (context.logger.isNull())
        return false;
    if (context.conf.isNull())
        return true;
    moveDebugFile(context);
    const ConfReader& conf = *context.conf;
    configureTimeMode(conf);
    configureRotation(conf);
    configureLevels(conf);
    return true;
}

} // namespace Velmor
