#include "process/naming/IdValues.h"

#include "process/Process.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <cstdlib>

namespace Velmor {

namespace {
constexpr int32_t cleaningInterval = 300; // seconds
constexpr std::string_view extension = ".idval";
constexpr size_t largestFile = 4096; // bytes

/// What the look-ups of all threads share.
struct IdValueState {
    Monopoly monopoly; // guards the rest
    std::string directory;
    int32_t lastCleaning = 0; // seconds since 1970
    int64_t emptySince = -1;  // likewise: when the directory was last changed, if it then held no files; else -1
};

IdValueState& state() {
    static IdValueState instance;
    return instance;
}

/// Where the files lie; empty, and asked for again at the next use, while the family's value can't be read.
std::string findDirectory() {
    IdValueState& shared = state();
    const MonopolyHold hold(shared.monopoly);
    if (shared.directory.empty() && getResourceValue("InstallDir", shared.directory) == ResourceResult::success) {
        FileUtils::addSeparator(shared.directory);
        shared.directory += "Log\\temp\\";
    }
    return shared.directory;
}

bool isCleaningDue() {
    IdValueState& shared = state();
    const int32_t now = DateTime().getSeconds();
    const MonopolyHold hold(shared.monopoly);
    if (now - shared.lastCleaning < cleaningInterval)
        return false;
    shared.lastCleaning = now;
    return true;
}

/// Whether there are no files at all, going by the time of the directory's last change: it spares four looks at each
/// start of a process. Without a directory of their own they may lie anywhere.
bool hasNoFiles() {
    constexpr int32_t settlingTime = 2; // seconds; a change within the clock's grain of the one that was seen hides
    const std::string directory = findDirectory();
    if (directory.empty())
        return false;
    int64_t changed = 0;
    if (!FileOps::lastChange(directory, changed))
        return true;
    IdValueState& shared = state();
    const MonopolyHold hold(shared.monopoly);
    if (shared.emptySince == changed)
        return true;
    const bool isEmpty = FileOps::scanDirectory(directory, "*.idval").empty();
    const bool isSettled = DateTime().getSeconds() - changed >= settlingTime;
    shared.emptySince = isEmpty && isSettled ? changed : -1;
    return isEmpty;
}

std::string fileKey(std::string_view key) {
    std::string text(key);
    StringSearcher::replaceChar(text, ' ', '_');
    return text;
}

/// The value in the second line of a file; false if it can't be read. Anybody may have left the file, so nothing in it
/// may look like a further field of the record.
bool readValue(const std::string& path, std::string& value) {
    std::string text;
    if (!FileUtils::readForeign(path, largestFile, text))
        return false;
    firstField(text, '\n');
    value = firstField(text, '\n');
    std::erase(value, '\r');
    firstField(value, '=');
    std::replace_if(
        value.begin(), value.end(), [](unsigned char c) { return c < ' ' || c == 0x7F || c == '|' || c == ':'; }, '_');
    return true;
}

/// Whether the process that a file was left for still runs, going by the id and the image in its name.
bool isOfRunningProcess(std::string name) {
    firstField(name, '-');
    firstField(name, '-');
    const auto pid = static_cast<uint32_t>(std::atol(firstField(name, '-').c_str()));
    FileUtils::stripExtension(name);
    const Process process(pid, 0, Process::Mode::running, true);
    return toLowerCopy(FileUtils::getBaseName(process.getExecutable())) == toLowerCopy(name);
}
} // namespace

Monopoly& idValuesLock() {
    return state().monopoly;
}

bool getIdValues(const std::string& user, std::string& text, std::string_view firstKey, std::string_view secondKey,
                 uint32_t pid, const std::string& executable) {
    cleanIdValues();
    if (hasNoFiles())
        return true;
    getIdValue(user, text, firstKey, pid, executable);
    getIdValue(user, text, secondKey, pid, executable);
    return true;
}

bool getIdValue(const std::string& user, std::string& text, std::string_view key, uint32_t pid,
                const std::string& executable) {
    std::string value;
    if (readProcessIdValue(user, key, value, pid, executable) && !value.empty())
        text.append("|").append(key).append("=").append(value);
    return true;
}

bool readProcessIdValue(const std::string& user, std::string_view key, std::string& value, uint32_t pid,
                        const std::string& executable) {
    const std::string directory = findDirectory();
    cleanIdValues();
    const std::string path = directory + fileKey(key) + "-" + user + "-" + std::to_string(pid) + "-" +
                             FileUtils::getBaseName(executable) + std::string(extension);
    return FileOps::exists(path) ? readValue(path, value) : readUserIdValue(user, key, value);
}

bool readUserIdValue(const std::string& user, std::string_view key, std::string& value) {
    const std::string directory = findDirectory();
    cleanIdValues();
    const std::string path = directory + fileKey(key) + "-" + user + std::string(extension);
    return FileOps::exists(path) && readValue(path, value);
}

void cleanIdValues() {
    if (!isCleaningDue())
        return;
    const std::string directory = findDirectory();
    for (const DirectoryEntry& entry : FileOps::scanDirectory(directory, "*-*-*-*.idval"))
        if (entry.isRegular && !isOfRunningProcess(entry.name))
            FileUtils::remove(directory + entry.name, true);
}

} // namespace Velmor
