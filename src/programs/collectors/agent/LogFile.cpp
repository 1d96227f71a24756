#include "programs/collectors/agent/LogFile.h"

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileFactory.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/LossBook.h"
#include "shared/library/common/time/DateTime.h"

#include <atomic>
#include <utility>

namespace Velmor {

namespace {
std::atomic<uint32_t> fileCounter{0};

constexpr uint16_t dataFileAccess = FileBase::ACCESS_WRITE | FileBase::ACCESS_TRUNCATE | FileBase::ACCESS_CREATE;
constexpr std::string_view workingWord = "make";
constexpr std::string_view finalWord = "data";

std::string finalName(const std::string& workingName) {
    std::string base = FileUtils::getBaseName(workingName);
    if (const size_t word = base.find(workingWord); word != std::string::npos)
        base.replace(word, workingWord.size(), finalWord);
    return FileUtils::getDirectory(workingName) + base;
}

/// Renames what an ending that failed has left. The system tells once that the disk has not taken what was written, and
/// a second flush of the same file would seem to succeed; so the data are written and flushed anew.
bool renameAnew(const std::string& from, const std::string& to) {
    const std::string copy = from + ".copy"; // which the next start deletes
    return FileOps::copy(from, copy, true) && FileOps::move(copy, from, true) && FileOps::move(from, to, true);
}

/// The name under which a working name's records lie until they get their final one; the next start hands it over.
std::string temporaryName(const std::string& workingName) {
    return workingName + ".tmp";
}

std::string localTime(int32_t seconds) {
    return DateTime(seconds).toString(false, false);
}
} // namespace

LogFile::~LogFile() {
    try {
        end();
    } catch (const Exception& failure) {
        agentLogger().debug(1, "LogFile:" + failure.getFullDescription());
    }
    tellLost();
}

/// What still waits at the end is lost.
void LogFile::tellLost() {
    const uint64_t lost = waiting_.count() + waiting_.dropped();
    if (lost == 0)
        return;
    lossBook().add(LossBook::Cause::records, waiting_.count()); // the others have been entered
    agentLogger().error(AgentMessage::waitingLost, getName(), std::to_string(lost));
}

void LogFile::setName(const std::string& stem) {
    const MonopolyHold hold(lock_);
    if (isOpen())
        end();
    const std::string name = stem + "-" + std::to_string(DateTime().getSeconds()) + "-" +
                             std::to_string(platform().machine->processId()) + "-" + std::to_string(++fileCounter) +
                             "." + std::string(workingWord);
    file_ = FileFactory::create(name);
    agentLogger().debug(3, "LogFile: Set name = \"%s\".", name);
}

std::string LogFile::getName() {
    const MonopolyHold hold(lock_);
    return file_.isNull() ? std::string() : file_->getName();
}

bool LogFile::open() {
    agentLogger().debug(3, "LogFile: Opening file: %s...", getName());
    const MonopolyHold hold(lock_);
    if (file_.isNull()) {
        agentLogger().error(AgentMessage::notPrepared, "Open logfile", "");
        return false;
    }
    if (tryOpen())
        return true;
    reportFailure();
    return false;
}

/// Runs a step on the file. What it throws is kept for the report.
template <typename Step>
bool LogFile::attempt(int32_t message, Step&& step) {
    try {
        step();
        return true;
    } catch (const FileException& failure) {
        failure_ = {message, failure.getCodeText(), failure.getFullDescription()};
    } catch (...) {
        failure_ = {message, "UNKNOWN", {}};
    }
    return false;
}

bool LogFile::tryOpen() {
    return attempt(AgentMessage::fileNotOpened, [&] {
        if (isOpen())
            end();
        FileUtils::makeDirectories(file_->getName()); // which may have been removed
        rescueUnfinished();
        file_->open(dataFileAccess);
        written_ = {};
        agentLogger().debug(4, "   LogFile: File opened.");
    });
}

void LogFile::reportFailure() {
    uint32_t count = 0;
    if (!failureLimit_.passes(count))
        return;
    agentLogger().error(failure_.message, file_->getName(), failure_.code);
    if (!waiting_.isEmpty())
        agentLogger().warning(AgentMessage::recordsWait, file_->getName(), std::to_string(waiting_.count()),
                              std::to_string(waiting_.dropped()));
    if (!failure_.description.empty())
        agentLogger().debug(1, "LogFile:" + failure_.description);
}

/// An ending that was cut short, by a failure or by the forced end of its thread, leaves the records under the name
/// that the next start takes for the leftover of a crash. Opening that name again would empty it; and a name whose file
/// was handed over must not come again.
void LogFile::rescueUnfinished() {
    const std::string name = file_->getName();
    const std::string final = finalName(name);
    const std::string left = temporaryName(name);
    const bool isLeft = FileOps::size(left) > 0;
    if (!isLeft && !FileOps::exists(final))
        return;
    updateName();
    if (isLeft)
        noteRename(renameAnew(left, final), left, final);
    FileUtils::remove(name, false); // the empty file that stood for it
}

bool LogFile::write(std::string_view text) {
    agentLogger().debug(5, "LogFile: Writing...");
    const MonopolyHold hold(lock_);
    if (file_.isNull()) {
        agentLogger().error(AgentMessage::noDataFile, "LogFile:write: Trying to write to NULL file object.");
        return false;
    }
    if (waiting_.isEmpty() && writeNow(text))
        return true;
    waiting_.add(text);
    writeWaiting();
    return true;
}

/// True if the text is in the file.
bool LogFile::writeNow(std::string_view text) {
    giveUpIfGone();
    if (!isOpen()) {
        agentLogger().debug(5, "   LogFile: File is not open. Opening...");
        if (!tryOpen())
            return false;
    }
    if (!attempt(AgentMessage::fileNotWritten, [&] { file_->write(text.data(), text.size()); }))
        return false;
    const int32_t now = DateTime().getSeconds();
    if (written_.count++ == 0)
        written_.first = now;
    written_.last = now;
    return true;
}

/// Tries to write what waits; what can't be written goes on waiting, which is reported.
void LogFile::writeWaiting() {
    if (waiting_.isEmpty())
        return;
    if (!waiting_.drain([&](const std::string& record) { return writeNow(record); })) {
        reportFailure();
        return;
    }
    agentLogger().notice(AgentMessage::waitingWritten, file_->getName(), std::to_string(waiting_.waited()),
                         std::to_string(waiting_.dropped()));
    waiting_.restart();
    failureLimit_.restart();
}

/// A file that was deleted, or moved with its directory, would take records that nobody ever gets. The whole look is
/// taken once a second.
void LogFile::giveUpIfGone() {
    if (!isOpen())
        return;
    const int32_t now = DateTime().getSeconds();
    const bool isWholeLook = std::exchange(lastLook_, now) != now;
    if (file_->isLinked() && (!isWholeLook || file_->isInPlace()))
        return;
    if (written_.count > 0)
        lossBook().add(LossBook::Cause::takenAway, written_.count);
    agentLogger().error(AgentMessage::fileGone, file_->getName(), std::to_string(written_.count),
                        localTime(written_.first), localTime(written_.last));
    try {
        file_->abort();
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): its lock has gone with it
    }
    updateName();
}

bool LogFile::flushLine() {
    const MonopolyHold hold(lock_);
    if (isOpen())
        file_->flush();
    return write("\n");
}

bool LogFile::writeRecord(std::string_view record) {
    ++records_.inAll;
    ++records_.sinceEnd;
    return write(std::string(record) + '\n'); // in one piece, so that a full disk can't keep the end back
}

void LogFile::end() {
    const MonopolyHold hold(lock_);
    records_.sinceEnd = 0;
    retryRenames();
    writeWaiting();
    giveUpIfGone();
    if (!isOpen()) {
        if (!file_.isNull())
            rescueUnfinished();
        return;
    }
    const std::string oldName = file_->getName();
    const std::string newName = finalName(oldName);
    agentLogger().debug(4, "LogFile: Ending file \"%s\"...", oldName);
    // In one step: between two a crash would leave the records under a name that the next start deletes.
    file_->setFinalName(newName);
    file_->close();
    if (!file_->tookFinalName())
        FileUtils::remove(oldName, false); // the empty file that stood for it
    noteRename(file_->tookFinalName(), temporaryName(oldName), newName);
    updateName();
    records_.lastEnd = DateTime().getSeconds();
    agentLogger().debug(4, "LogFile: Updated file name from \"%s\" to \"%s\".", FileUtils::getBaseName(newName),
                        FileUtils::getBaseName(file_->getName()));
}

void LogFile::noteRename(bool succeeded, const std::string& from, const std::string& to) {
    if (!succeeded) {
        agentLogger().warning(AgentMessage::fileNotRenamed, from, to);
        failedRenames_.push_back({from, to});
        return;
    }
    agentLogger().debug(4, "LogFile: Renaming file \"%s\" to \"%s\".", FileUtils::getBaseName(from),
                        FileUtils::getBaseName(to));
    agentLogger().debug(2, "LogFile: Ended file \"" + from + "\".");
}

void LogFile::retryRenames() {
    // A name that has gone was moved after all, by a call that failed behind the move.
    std::erase_if(failedRenames_, [](const Rename& r) { return !FileOps::exists(r.from) || renameAnew(r.from, r.to); });
}

void LogFile::updateName() {
    if (file_.isNull()) {
        agentLogger().debug(1, "UpdateName ERROR: Trying to update void file object.");
        return;
    }
    const std::string name = file_->getName();
    const std::string base = FileUtils::getBaseName(name);
    setName(FileUtils::getDirectory(name) + base.substr(0, base.find('-')));
}

} // namespace Velmor
