#include "programs/collectors/agent/Win32/Runtally/state/ProcessEventLog.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <cstdlib>

namespace Velmor {

namespace {
constexpr int32_t secondsOfDay = 86400;
constexpr const char* filePattern = "procevents*.eventlog";
constexpr std::string_view fileExtension = ".eventlog";

const Logger& logger() {
    return runtallyState().logger;
}

std::string twoDigits(int32_t number) {
    std::string text = std::to_string(number);
    StringSearcher::padLeft(text, 2, '0');
    return text;
}

std::string fileNameOf(const DateTime& now) {
    const DateTimeParts day = now.toLocal(now.getDateTime());
    return programState().tempDirectory + "\\" + runtallyState().settings.eventLogStem + "-" +
           std::to_string(day.year) + "-" + twoDigits(day.month) + "-" + twoDigits(day.day) +
           std::string(fileExtension);
}

/// The UTC midnight of the date in a file's name; what is no number counts as 0.
DateTime dateOf(std::string name) {
    firstField(name, '-');
    const int32_t year = std::atoi(firstField(name, '-').c_str());
    const int32_t month = std::atoi(firstField(name, '-').c_str());
    const int32_t day = std::atoi(firstField(name, '.').c_str());
    return DateTime(DateParts{year, month, day});
}

/// The UTC midnight at the beginning of the day before.
DateTime dayBefore(const DateTime& reference) {
    const int32_t seconds = reference.getSeconds();
    return DateTime(seconds - seconds % secondsOfDay - secondsOfDay);
}

int64_t lastChangeOf(const std::string& directory) {
    int64_t seconds = 0;
    FileOps::lastChange(directory, seconds);
    return seconds;
}

/// A "|" in a name would shift the fields behind it.
std::string withoutSeparator(std::string text) {
    std::replace(text.begin(), text.end(), '|', '_');
    return text;
}

std::string lineOf(const DateTime& when, std::string_view event, const Process& process) {
    std::string line = std::to_string(when.getSeconds());
    line.append("|").append(when.toString(false, false));
    line.append("|").append(std::to_string(process.pid()));
    line.append("|").append(withoutSeparator(process.getExecutable()));
    line.append("|").append(withoutSeparator(process.getApplication()));
    line.append("|").append(process.getUser());
    line.append("|").append(event);
    return line;
}
} // namespace

void ProcessEventLog::write(bool isStart, const Process& process) {
    const std::string_view event = isStart ? "start" : "end";
    const DateTime when = isStart ? process.getStart() : process.getEnd();
    const DateTime now;
    if (when > dayBefore(file_.isOpen() ? opened_ : now))
        closeAndClean(now);
    {
        const MonopolyHold hold(eventLogMonopoly_);
        waiting_.add(lineOf(when, event, process));
        if (!writeWaiting(now))
            return;
    }
    logger().debug(5, "Logged %s event for process %i (%s) to process event log file", event, process.pid(),
                   process.getExecutable());
}

/// Writes what waits, as far as the disk takes it. False if something goes on waiting, which is reported.
bool ProcessEventLog::writeWaiting(const DateTime& now) {
    const bool isOpen = file_.isOpen() || openFile(now);
    if (isOpen && waiting_.drain([&](const std::string& line) { return file_.writeLine(line); })) {
        file_.flush();
        waiting_.restart();
        failureLimit_.restart();
        return true;
    }
    uint32_t count = 0;
    if (!failureLimit_.passes(count))
        return false;
    if (!isOpen)
        logger().error(RuntallyMessage::noFile, "log-to-file");
    logger().error(RuntallyMessage::eventLogNotWritten, fileName_, std::to_string(waiting_.count()),
                   std::to_string(waiting_.dropped()));
    return false;
}

bool ProcessEventLog::openFile(const DateTime& now) {
    fileName_ = fileNameOf(now);
    if (!file_.open(fileName_, BasicFile::MODE_APPEND))
        return false;
    opened_ = now;
    return true;
}

void ProcessEventLog::closeAndClean(const DateTime& now) {
    if (file_.isOpen())
        file_.close();
    const int64_t changed = lastChangeOf(programState().tempDirectory);
    if (!isCleaningDue(now, changed))
        return;
    directoryChanged_ = changed;
    cleanedAt_ = now.getSeconds();
    cleanedDays_ = runtallyState().settings.eventLogDays;
    cleanedDirectory_ = programState().tempDirectory;
    clean(now);
}

/// A file's age is counted in whole days from a UTC midnight, so it changes with the UTC day; and what lies in the
/// directory doesn't change before its own time does. A change in the second of the last cleaning may have come later.
bool ProcessEventLog::isCleaningDue(const DateTime& now, int64_t directoryChanged) const {
    const bool sameDay = cleanedAt_ >= 0 && cleanedAt_ / secondsOfDay == now.getSeconds() / secondsOfDay;
    const bool sameFiles =
        directoryChanged == directoryChanged_ && (directoryChanged < cleanedAt_ || now.getSeconds() == cleanedAt_);
    return !sameDay || !sameFiles || cleanedDays_ != runtallyState().settings.eventLogDays ||
           cleanedDirectory_ != programState().tempDirectory;
}

void ProcessEventLog::clean(const DateTime& now) {
    const std::string& directory = programState().tempDirectory;
    for (const DirectoryEntry& entry : FileOps::scanDirectory(directory, filePattern))
        if (entry.isFile && (now - dateOf(entry.name)).getDays() > runtallyState().settings.eventLogDays)
            FileUtils::remove(directory + "\\" + entry.name, false);
}

void logProcessEvent(bool isStart, const ProcessPointer& process) {
    if (runtallyState().settings.eventLogOn)
        runtallyState().eventLog.write(isStart, *process);
}

} // namespace Velmor
