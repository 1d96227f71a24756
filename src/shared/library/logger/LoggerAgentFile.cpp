#include "shared/library/logger/LoggerAgentFile.h"

#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/Platform.h"
#include "platform/Threads.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/logger/LogFileSettings.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr std::string_view lineEnd = "\r\n";
constexpr int writeAttempts = 40;
constexpr uint32_t writeAttemptPause = 50; // milliseconds
constexpr uint32_t lookInterval = 1000;    // milliseconds
constexpr uint32_t rotationPause = 100;    // milliseconds between looks at another thread's rotation
constexpr int rotationWaits = 50;
constexpr uint16_t openFlags = FileBase::ACCESS_WRITE | FileBase::ACCESS_CREATE | FileBase::ACCESS_APPEND |
                               FileBase::ACCESS_UNSAFE | FileBase::ACCESS_NOLOCK;

std::string openedValue() {
    return logFileSettings().programName + "LogOpened";
}
} // namespace

LoggerAgentFile::~LoggerAgentFile() {
    try {
        closeWithReason("Quitting Logger Agent");
    } catch (const Exception&) { // NOLINT(bugprone-empty-catch): the note is lost with the file
    }
}

std::string LoggerAgentFile::describe() {
    return "file:///" + (file_.isNull() ? std::string() : file_->getName());
}

bool LoggerAgentFile::setFile(const std::string& path) {
    const TimedMonopolyHold hold(access_);
    if (!file_.isNull() && file_->getName() == path)
        return true;
    SmartPointer<FileBase> next(new FilePlain(path));
    lockName_ = FileUtils::getBaseName(path);
    std::replace_if(
        lockName_.begin(), lockName_.end(), [](char c) { return c == '/' || c == '\\'; }, '_');
    std::string note;
    if (!file_.isNull() && file_->isOpen()) {
        note = "Log continued from \"" + file_->getName() + "\"." + std::string(lineEnd);
        closeWithReason("Log file moved to \"" + path + "\".");
    }
    file_ = std::move(next);
    if (note.empty())
        return true;
    try {
        adoptSettings();
        begin();
        append(note);
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): the next line tries the new file again
    }
    return true;
}

bool LoggerAgentFile::write(std::string_view text) {
    awaitRotation();
    const TimedMonopolyHold hold(access_);
    if (file_.isNull())
        return false;
    isRotating_ = false; // a rotation that still ran would hold the object
    adoptSettings();
    checkRotation();
    if (file_->isOpen() && isTakenAway())
        closeQuietly();
    if (!file_->isOpen())
        begin();
    return append(text);
}

/// Waits for another thread's rotation; but one that was ended in the middle of it never finishes.
void LoggerAgentFile::awaitRotation() {
    for (int i = 0; isRotating_ && access_.getOwner() != platform().threads->currentId() && i < rotationWaits; ++i)
        Timer::sleep(rotationPause);
}

/// Whether somebody has moved or deleted the file. Looks once a second at most.
bool LoggerAgentFile::isTakenAway() {
    const uint32_t now = platform().clock->ticks();
    if (now - lastLook_ < lookInterval)
        return false;
    lastLook_ = now;
    return !file_->isInPlace();
}

/// What the system tells only now to be lost concerns lines that nobody can write again.
void LoggerAgentFile::closeQuietly() {
    try {
        file_->close();
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): the file is closed all the same
    }
}

/// Takes changed settings over; the moment of the next rotation hangs on them.
void LoggerAgentFile::adoptSettings() {
    LogFileSettings& settings = logFileSettings();
    const int32_t period = settings.rotationPeriod;
    const uint32_t limit = settings.sizeLimit;
    if (period == settings.lastPeriod && limit == settings.lastSizeLimit)
        return;
    settings.lastPeriod = period;
    settings.lastSizeLimit = limit;
    workOutNextRotation();
}

/// Opens the log, which an earlier run may have left to be rotated, and says so.
void LoggerAgentFile::begin() {
    openFile();
    checkRotation();
    append(std::string(lineEnd) + "Opened log file \"" + file_->getBaseName() +
           "\". Time: " + DateTime().toString(false, false) + std::string(lineEnd));
}

void LoggerAgentFile::openFile() {
    const bool existed = file_->exists();
    opened_.setNow();
    std::string stored;
    if (!existed) {
        logFileSettings().rotateAtStart = false;
    } else if (getResourceValue(openedValue(), stored) == 0) {
        try {
            opened_ = DateTime(DateTime::fromString(stored));
        } catch (const TimeException&) { // NOLINT(bugprone-empty-catch): a damaged value counts as none
        }
    }
    file_->open(openFlags);
    if (!existed)
        setResourceValue(openedValue(), opened_.toString(true, true));
    periodBase_ = opened_.getSeconds();
    workOutNextRotation();
}

bool LoggerAgentFile::append(std::string_view text) {
    Monopoly lock(lockName_);
    for (int i = 0; !lock.enforce(); ++i) {
        if (lock.getLastError() != NativeError::alreadyExists)
            break; // no lock is to be had, as without a free descriptor; a line is one call, and stays whole
        if (i == writeAttempts - 1)
            return false;
        Timer::sleep(writeAttemptPause);
    }
    writeLine(text);
    logFileSettings().rotateAtStart = false;
    lock.relax();
    file_->flush();
    return true;
}

/// What a rotation says of itself, under the lock that it holds.
void LoggerAgentFile::appendNote(std::string_view text) {
    if (!file_->isOpen())
        openFile();
    writeLine(text);
    file_->flush();
}

void LoggerAgentFile::writeLine(std::string_view text) {
    file_->seek(0, FileBase::OFFSET_END);
    std::string line(text);
    line += lineEnd;
    file_->write(line.data(), line.size());
}

std::string LoggerAgentFile::closingNote(std::string_view reason) const {
    return std::string(lineEnd) + "Closing log file \"" + file_->getBaseName() +
           "\". Time: " + DateTime().toString(false, false) + ". Reason: " + std::string(reason) + "." +
           std::string(lineEnd);
}

void LoggerAgentFile::closeWithReason(std::string_view reason) {
    if (file_.isNull() || !file_->isOpen())
        return;
    try {
        append(closingNote(reason));
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): a full disk must not keep the file open
    }
    closeQuietly();
}

} // namespace Velmor
