#include "shared/library/logger/LoggerUnit.h"

#include "shared/library/common/errors/FileException.h"
#include "shared/library/logger/LogCommons.h"

#include <atomic>
#include <iostream>

namespace Velmor {

namespace {
/// The settings of the program; plain words that any thread reads.
struct Settings {
    std::atomic<int32_t> debugLevel{5};    // the highest level that passes
    std::atomic<int32_t> severityLevel{0}; // the lowest severity that passes
    std::atomic<int32_t> timeMode{1};
    std::atomic<bool> showThreadId{false};
};
Settings settings;

constexpr uint32_t levels = 6;
} // namespace

LoggerUnit::LoggerUnit(const SmartPointer<LoggerCentre>& centre, int32_t module) : module_(module), centre_(centre) {
    try {
        debug(1, "LoggerUnit: Created logger for the %s module.", ParamStream() << LogCommons::moduleName(module));
    } catch (const FileException& failure) { // a unit serves also while its file can't be written
        tellLost(failure);
    }
}

LoggerUnit::~LoggerUnit() {
    try {
        debug(1, "LoggerUnit: Destroyed logger for the %s module.", ParamStream() << LogCommons::moduleName(module_));
    } catch (...) { // NOLINT(bugprone-empty-catch): the debug file is gone, and nothing is left to tell it to
    }
}

bool LoggerUnit::debug(int32_t level, std::string_view text) {
    if (level > getDebugLevel())
        return true;
    if (centre_.isNull())
        return false;
    LogMessage message;
    message.module = module_;
    message.level = level;
    message.timeMode = settings.timeMode.load(std::memory_order_relaxed);
    message.text = text;
    return centre_->send(message);
}

bool LoggerUnit::debug(int32_t level, std::string_view format, const ParamStream& parameters) {
    if (level > getDebugLevel())
        return true;
    std::string text(format);
    LogCommons::formatMessage(text, parameters.getText());
    return debug(level, text);
}

bool LoggerUnit::log(int32_t severity, int32_t messageId, const ParamStream& parameters) {
    if (severity < settings.severityLevel.load(std::memory_order_relaxed))
        return true;
    if (centre_.isNull())
        return false;
    LogMessage message;
    message.isLog = true;
    message.module = module_;
    message.severity = severity;
    message.messageId = messageId;
    message.timeMode = settings.timeMode.load(std::memory_order_relaxed);
    message.text = parameters.getText();
    return centre_->send(message);
}

bool LoggerUnit::notice(int32_t messageId, const ParamStream& parameters) {
    return log(Severity::notice, messageId, parameters);
}

bool LoggerUnit::warning(int32_t messageId, const ParamStream& parameters) {
    return log(Severity::warning, messageId, parameters);
}

bool LoggerUnit::error(int32_t messageId, const ParamStream& parameters) {
    return log(Severity::error, messageId, parameters);
}

bool LoggerUnit::critical(int32_t messageId, const ParamStream& parameters) {
    return log(Severity::critical, messageId, parameters);
}

bool LoggerUnit::fatal(int32_t messageId, const ParamStream& parameters) {
    return log(Severity::fatal, messageId, parameters);
}

void LoggerUnit::tellLost(const FileException& failure) {
    static std::atomic<bool> isTold{false};
    if (!isTold.exchange(true))
        std::cerr << "The debug log can't be written (" + failure.getDescription() +
                         "), so its lines are lost; make its file and directory writable.\n";
}

void LoggerUnit::setDebugLevel(int32_t level) {
    if (static_cast<uint32_t>(level) < levels)
        settings.debugLevel = level;
}

int32_t LoggerUnit::getDebugLevel() {
    return settings.debugLevel.load(std::memory_order_relaxed);
}

void LoggerUnit::setSeverityLevel(int32_t severity) {
    if (static_cast<uint32_t>(severity) < levels)
        settings.severityLevel = severity;
}

void LoggerUnit::setTimeMode(int32_t mode) {
    settings.timeMode = mode;
}

void LoggerUnit::setShowThreadId(bool show) {
    settings.showThreadId = show;
}

bool LoggerUnit::getShowThreadId() {
    return settings.showThreadId.load(std::memory_order_relaxed);
}

} // namespace Velmor
