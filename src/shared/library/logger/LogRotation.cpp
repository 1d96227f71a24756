// The rotation of the debug log: when it is due, and how it is done.

#include "platform/Errors.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/logger/LogFileSettings.h"
#include "shared/library/logger/LoggerAgentFile.h"

#include <cstdlib>
#include <sstream>

namespace Velmor {

namespace {
constexpr int checkAttempts = 50;
constexpr uint32_t megabyteShift = 20;
constexpr float failedRotationStep = 0.25F;

std::string counterValue() {
    return logFileSettings().programName + "LogCounter";
}

std::string limitText(float limit) {
    std::ostringstream stream;
    stream << limit;
    return stream.str();
}

std::string timeText(const DateTime& time) {
    return time.toString(false, false);
}
} // namespace

LogFileSettings& logFileSettings() {
    static LogFileSettings settings;
    return settings;
}

void LoggerAgentFile::setProgramName(std::string_view name) {
    logFileSettings().programName = name;
}

void LoggerAgentFile::setScheme(uint32_t flags) {
    logFileSettings().rotationScheme = flags;
}

void LoggerAgentFile::addScheme(uint32_t flag) {
    logFileSettings().rotationScheme |= flag;
}

uint32_t LoggerAgentFile::getScheme() {
    return logFileSettings().rotationScheme;
}

void LoggerAgentFile::setPeriod(const TimeSpan& period) {
    logFileSettings().rotationPeriod = period.getSeconds();
}

void LoggerAgentFile::setSizeLimit(uint32_t megabytes) {
    logFileSettings().sizeLimit = megabytes;
}

void LoggerAgentFile::requestRotation() {
    LogFileSettings& settings = logFileSettings();
    settings.rotateAtStart = true;
    settings.lastPeriod = 0;
    settings.lastSizeLimit = 0;
}

void LoggerAgentFile::workOutNextRotation() {
    if (!(getScheme() & schemeTime))
        return;
    const TimeSpan period(logFileSettings().rotationPeriod.load());
    nextRotation_ = DateTime(periodBase_) + period;
    if (period.getSeconds() < 1 || nextRotation_.getSeconds() <= periodBase_)
        return;
    periodBase_ = nextRotation_.getSeconds();
    nextRotation_.alignTo(period);
    const DateTime now;
    if (nextRotation_ < now - period) {
        nextRotation_ = now;
        nextRotation_.alignTo(period);
    }
    while (nextRotation_ < now)
        nextRotation_ += period;
}

void LoggerAgentFile::checkRotation() {
    if (!file_->isOpen() || getScheme() == 0)
        return;
    Monopoly lock(lockName_);
    bool held = false;
    for (int i = 0; i < checkAttempts && !held; ++i) {
        held = lock.enforce();
        if (!held && lock.getLastError() != NativeError::alreadyExists)
            break;
    }
    if (!held)
        return;
    isRotating_ = true;
    try {
        std::string condition;
        if (isRotationDue(condition))
            rotate(condition);
    } catch (...) {
        isRotating_ = false; // a log that can't be written must not hold up its writers for ever
        throw;
    }
    isRotating_ = false;
}

bool LoggerAgentFile::isRotationDue(std::string& note) {
    const uint32_t scheme = getScheme();
    const DateTime now;
    const uint64_t size = file_->size() >> megabyteShift;
    const float limit = static_cast<float>(logFileSettings().sizeLimit.load()) * sizeFactor_;
    if (scheme & schemeInit)
        return isInitDue(scheme, now, size, limit, note);
    if (scheme & schemeTime)
        return isTimeDue(scheme, now, size, limit, note);
    note = "\nRotate condition: Size" + std::to_string(size) + " >= " + limitText(limit);
    return static_cast<float>(size) >= limit;
}

bool LoggerAgentFile::isInitDue(uint32_t scheme, const DateTime& now, uint64_t size, float limit,
                                std::string& note) const {
    if (!logFileSettings().rotateAtStart)
        return false;
    note = "\nRotate condition(s): Init";
    if (scheme & schemeTime) {
        if (now < nextRotation_)
            return false;
        note += " AND Time " + timeText(nextRotation_) + " <= " + timeText(now);
    }
    if (scheme & schemeSize) {
        if (static_cast<float>(size) < limit)
            return false;
        note += " AND Size " + std::to_string(size) + " >= " + limitText(limit);
    }
    return true;
}

bool LoggerAgentFile::isTimeDue(uint32_t scheme, const DateTime& now, uint64_t size, float limit,
                                std::string& note) const {
    if (logFileSettings().rotationPeriod <= 0)
        return false;
    const bool timeReached = now >= nextRotation_;
    note = "\nRotate condition(s):";
    if (timeReached)
        note += " Time " + timeText(nextRotation_) + " <= " + timeText(now);
    if (!(scheme & schemeSize))
        return timeReached;
    note += (timeReached ? " AND Size " : " Size ") + std::to_string(size) + " >= " + limitText(limit);
    return static_cast<float>(size) >= limit;
}

std::string LoggerAgentFile::rotatedName(const std::string& name) const {
    std::string base = FileUtils::getBaseName(name);
    const std::string extension = FileUtils::stripExtension(base);
    base.insert(0, FileUtils::getDirectory(name));
    std::string counter;
    if (getResourceValue(counterValue(), counter) != 0)
        counter = "0";
    setResourceValue(counterValue(), std::to_string(std::atol(counter.c_str()) + 1));
    base += "_" + opened_.toString(false, true) + "_" + counter;
    return extension.empty() ? base : base + "." + extension;
}

void LoggerAgentFile::rotate(const std::string& condition) {
    appendNote(condition);
    appendNote("\nRotation process started...");
    const std::string oldName = file_->getName();
    const std::string newName = rotatedName(oldName);
    appendNote("Renaming file from \"" + oldName + "\" to \"" + newName + "\".");
    try {
        appendNote(closingNote("Rotating log file"));
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): a full disk must not keep the file open
    }
    closeQuietly();
    if (!FileUtils::move(oldName, newName, true)) {
        sizeFactor_ += failedRotationStep;
        appendNote("Log file rotation error. (" + std::to_string(FileOps::getLastError()) + ")");
        return;
    }
    sizeFactor_ = 1.0F;
    appendNote("Log continued from \"" + FileUtils::getBaseName(newName) + "\".");
}

} // namespace Velmor
