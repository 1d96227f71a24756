#include "shared/library/common/files/FileOps.h"

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "shared/library/common/files/FileUtils.h"

#include <algorithm>
#include <array>
#include <limits>

namespace Velmor {

namespace {
thread_local uint32_t lastError = 0;

struct AttributePair {
    uint32_t info;
    uint32_t native;
};

constexpr std::array<AttributePair, 11> attributePairs{{
    {InfoAttribute::archive, FileAttribute::archive},
    {InfoAttribute::compressed, FileAttribute::compressed},
    {InfoAttribute::directory, FileAttribute::directory},
    {InfoAttribute::encrypted, FileAttribute::encrypted},
    {InfoAttribute::hidden, FileAttribute::hidden},
    {InfoAttribute::offline, FileAttribute::offline},
    {InfoAttribute::readOnly, FileAttribute::readOnly},
    {InfoAttribute::system, FileAttribute::system},
    {InfoAttribute::temporary, FileAttribute::temporary},
    {InfoAttribute::normal, FileAttribute::normal},
    {InfoAttribute::sparseFile, FileAttribute::sparseFile},
}};

constexpr std::string_view separators = "\\/";

/// A time that doesn't fit takes the fields of second 0.
DateTimeParts partsOfFileTime(int64_t seconds) {
    const bool fits = seconds >= 0 && seconds <= std::numeric_limits<int32_t>::max();
    return DateTime(fits ? static_cast<int32_t>(seconds) : 0).getDateTime();
}

FileSystem& fileSystem() {
    return *platform().fileSystem;
}
} // namespace

bool FileOps::copy(std::string_view from, std::string_view to, bool overwrite) {
    uint32_t error = 0;
    return fileSystem().copy(from, to, overwrite, error);
}

bool FileOps::move(std::string_view from, std::string_view to, bool replace) {
    lastError = 0;
    return fileSystem().move(from, to, replace, lastError);
}

std::vector<bool> FileOps::moveTogether(const std::vector<FileMove>& moves) {
    std::vector<uint32_t> errors;
    fileSystem().moveTogether(moves, errors);
    std::vector<bool> done(errors.size());
    std::transform(errors.begin(), errors.end(), done.begin(), [](uint32_t error) { return error == 0; });
    return done;
}

bool FileOps::deleteFile(std::string_view path) {
    uint32_t error = 0;
    return fileSystem().remove(path, error);
}

bool FileOps::makeDirectory(std::string_view path) {
    uint32_t error = 0;
    return fileSystem().makeDirectory(path, error);
}

std::string FileOps::getCurrentDirectory() {
    std::string path;
    uint32_t error = 0;
    if (!fileSystem().currentDirectory(path, error))
        return {};
    FileUtils::addSeparator(path);
    return path;
}

void FileOps::getInfo(std::string_view path, FileInfo& info) {
    FoundFile found;
    uint32_t error = 0;
    info.exists = fileSystem().find(path, found, error);
    if (!info.exists)
        return;
    fileSystem().fullPath(path, info.fullPath, error);
    info.sizeLow = static_cast<uint32_t>(found.size);
    info.sizeHigh = static_cast<uint32_t>(found.size >> 32);
    info.attributes = 0;
    for (const auto& [bit, native] : attributePairs)
        if (found.attributes & native)
            info.attributes |= bit;
    info.created = partsOfFileTime(found.created);
    info.accessed = partsOfFileTime(found.accessed);
    info.modified = partsOfFileTime(found.modified);
}

uint64_t FileOps::size(std::string_view path) {
    FoundFile found;
    uint32_t error = 0;
    return fileSystem().find(path, found, error) ? found.size : 0;
}

bool FileOps::lastChange(std::string_view path, int64_t& seconds) {
    FoundFile found;
    uint32_t error = 0;
    if (!fileSystem().find(path, found, error))
        return false;
    seconds = found.modified;
    return true;
}

bool FileOps::setAttributes(std::string_view path, uint32_t mask) {
    uint32_t native = 0;
    for (const auto& pair : attributePairs)
        if (mask & pair.info)
            native |= pair.native;
    uint32_t error = 0;
    return fileSystem().setAttributes(path, native, error);
}

bool FileOps::exists(std::string_view path) {
    if (path.empty())
        return false;
    if (path.back() == ':')
        return fileSystem().driveType(path) != DriveType::unknown;
    FoundFile found;
    uint32_t error = 0;
    return fileSystem().find(path, found, error);
}

bool FileOps::expandSpecialPrefix(std::string_view component, std::string& text) {
    lastError = 0;
    if (component == "/c:" || component == "\\c:") {
        text = "c:";
        return true;
    }
    if (component == "\\??" || component == "/??") {
        text.clear();
        return true;
    }
    if (component == "/systemroot" || component == "\\systemroot")
        return fileSystem().windowsDirectory(text, lastError);
    if (component.size() >= 2 && component.front() == '%' && component.back() == '%')
        return fileSystem().environment(component.substr(1, component.size() - 2), text);
    return false;
}

std::string FileOps::getLongPath(std::string_view path) {
    std::string result;
    while (!path.empty()) {
        const size_t end = std::min(path.find_first_of(separators), path.size());
        const std::string joined = result + std::string(path.substr(0, end));
        FoundFile found;
        uint32_t error = 0;
        if (joined.ends_with(':')) {
            result = joined + '\\';
        } else if (end > 0 && fileSystem().find(joined, found, error)) {
            result += found.name + '\\';
        } else if (end == 0 && result.find_first_not_of(separators) == std::string::npos) {
            result += path.front(); // the root, or the beginning of a network path
        } else {
            result += path;
            FileUtils::addSeparator(result);
            return result;
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return result;
}

std::vector<DirectoryEntry> FileOps::scanDirectory(std::string_view directory, std::string_view pattern) {
    std::vector<FoundFile> found;
    uint32_t error = 0;
    fileSystem().scan(directory, pattern, found, error);
    std::vector<DirectoryEntry> entries;
    entries.reserve(found.size());
    constexpr uint32_t special = FileAttribute::directory | FileAttribute::device | FileAttribute::reparsePoint;
    for (FoundFile& file : found)
        entries.push_back(
            {std::move(file.name), !(file.attributes & FileAttribute::directory), (file.attributes & special) == 0});
    return entries;
}

uint32_t FileOps::getLastError() {
    return lastError;
}

} // namespace Velmor
