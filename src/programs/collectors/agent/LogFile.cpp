#include "programs/collectors/agent/LogFile.h"

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileFactory.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/time/DateTime.h"

#include <atomic>

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

/// Gives a file the name by which the next start takes it for the leftover of a crash. Returns the name that it has
/// now.
std::string leaveForNextStart(const std::string& name) {
    if (name.ends_with(".tmp"))
        return name;
    const std::string leftover = name + ".tmp";
    return FileOps::move(name, leftover, true) ? leftover : name;
}

void reportFailure(int32_t message, const std::string& fileName, const FileException& failure) {
    agentLogger().error(message, fileName, failure.getCodeText());
    agentLogger().debug(1, "LogFile:" + failure.getFullDescription());
}
} // namespace

LogFile::~LogFile() {
    try {
        end();
    } catch (const Exception& failure) {
        agentLogger().debug(1, "LogFile:" + failure.getFullDescription());
    }
    for (const Rename& r : failedRenames_)
        leaveForNextStart(r.from);
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
    try {
        if (isOpen())
            end();
        rescueUnfinished();
        file_->open(dataFileAccess);
        agentLogger().debug(4, "   LogFile: File opened.");
        return true;
    } catch (const FileException& failure) {
        reportFailure(AgentMessage::fileNotOpened, file_->getName(), failure);
    } catch (...) {
        agentLogger().error(AgentMessage::fileNotOpened, file_->getName(), "UNKNOWN");
    }
    return false;
}

/// An ending that was cut short, by a failure or by the forced end of its thread, leaves the records under one of the
/// working names. Opening that name again would empty it; and a name whose file was handed over must not come again.
void LogFile::rescueUnfinished() {
    const std::string name = file_->getName();
    const std::string final = finalName(name);
    if (FileOps::exists(final))
        updateName();
    for (const std::string& left : {name + ".tmp", name}) {
        if (FileUtils::getFileSize(left) == 0)
            continue;
        if (file_->getName() == name)
            updateName();
        noteRename(renameAnew(left, final), left, final);
        break;
    }
    if (file_->getName() != name && FileUtils::getFileSize(name) == 0)
        FileUtils::remove(name, false); // the empty file that stood for it
}

bool LogFile::write(std::string_view text) {
    agentLogger().debug(5, "LogFile: Writing...");
    const MonopolyHold hold(lock_);
    if (file_.isNull()) {
        agentLogger().error(AgentMessage::noDataFile, "LogFile:write: Trying to write to NULL file object.");
        return false;
    }
    if (!isOpen()) {
        agentLogger().debug(5, "   LogFile: File is not open. Opening...");
        if (!open())
            return false;
    }
    try {
        file_->write(text.data(), text.size());
        return true;
    } catch (const FileException& failure) {
        reportFailure(AgentMessage::fileNotWritten, file_->getName(), failure);
    } catch (...) {
        agentLogger().error(AgentMessage::fileNotWritten, file_->getName(), "UNKNOWN");
    }
    return false;
}

bool LogFile::flushLine() {
    const MonopolyHold hold(lock_);
    if (isOpen())
        file_->flush();
    return write("\n");
}

bool LogFile::writeRecord(std::string_view record) {
    return write(std::string(record) + '\n'); // in one piece, so that a full disk can't keep the end back
}

void LogFile::end() {
    const MonopolyHold hold(lock_);
    retryRenames();
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
    if (file_->tookFinalName())
        reportEnd(oldName, newName);
    else
        noteRename(FileOps::move(oldName, newName, true), oldName, newName);
    updateName();
    agentLogger().debug(4, "LogFile: Updated file name from \"%s\" to \"%s\".", FileUtils::getBaseName(newName),
                        FileUtils::getBaseName(file_->getName()));
}

void LogFile::reportEnd(const std::string& from, const std::string& to) {
    agentLogger().debug(4, "LogFile: Renaming file \"%s\" to \"%s\".", FileUtils::getBaseName(from),
                        FileUtils::getBaseName(to));
    agentLogger().debug(2, "LogFile: Ended file \"" + from + "\".");
}

void LogFile::noteRename(bool succeeded, const std::string& from, const std::string& to) {
    if (succeeded) {
        reportEnd(from, to);
        return;
    }
    agentLogger().warning(AgentMessage::fileNotRenamed, from, to);
    failedRenames_.push_back({leaveForNextStart(from), to}); // should there be no other chance
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
