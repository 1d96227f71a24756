#include "platform/linux/files/LinuxFileSystem.h"

#include "platform/Errors.h"
#include "platform/linux/base/ActingAs.h"
#include "platform/linux/base/DirectoryReader.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/base/NewEntry.h"
#include "platform/linux/base/SystemText.h"
#include "platform/linux/files/LinuxOpenFile.h"
#include "platform/linux/files/NativePath.h"
#include "platform/linux/files/SystemCalls.h"
#include "platform/linux/threads/Checkpoint.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fnmatch.h>
#include <optional>
#include <sys/statvfs.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr mode_t fileMode = 0640;
constexpr mode_t directoryMode = 0750;
constexpr mode_t anyWrite = 0222;
constexpr size_t copyBlock = 64 * 1024;

int openForReal(const char* path, int flags, mode_t mode) {
    return openExactly(AT_FDCWD, path, flags, mode).release();
}

int makeDirectoryForReal(const char* path, mode_t mode) {
    return makeDirectoryExactly(AT_FDCWD, path, mode) ? 0 : -1;
}

int flagsOf(OpenMode mode) {
    switch (mode) {
    case OpenMode::read:
        return O_RDONLY | O_NONBLOCK; // a pipe under the name must not hold the reader
    case OpenMode::readRegular:
        return O_RDONLY | O_NONBLOCK | O_NOFOLLOW;
    case OpenMode::write:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case OpenMode::append:
        return O_WRONLY | O_CREAT | O_APPEND;
    case OpenMode::readWrite:
        return O_RDWR;
    case OpenMode::readWriteEmptied:
        return O_RDWR | O_CREAT | O_TRUNC;
    default:
        return O_RDWR | O_CREAT | O_APPEND;
    }
}

bool answer(bool succeeded, uint32_t& error) {
    error = succeeded ? NativeError::success : nativeError(errno);
    return succeeded;
}

/// The native API opens no directory, but the kernel lets one be opened for reading, and then gives no byte of it.
bool isRefused(int descriptor, int flags) {
    struct stat state {};
    if ((flags & O_ACCMODE) != O_RDONLY || systemCalls().fstat(descriptor, &state) != 0)
        return false;
    return S_ISDIR(state.st_mode) || ((flags & O_NOFOLLOW) && !S_ISREG(state.st_mode));
}

/// Where something is written or made. Root does it in a directory that is held open, as the directory's owner; it
/// would be led anywhere by whoever else can put links there.
class Place {
public:
    explicit Place(const std::string& path) : path_(path) {
        struct stat state {};
        if (geteuid() != 0)
            return;
        const size_t separator = path.rfind('/', path.find_last_not_of('/'));
        const std::string parent = separator == std::string::npos ? "." : path.substr(0, separator + 1);
        directory_ = FileDescriptor(systemCalls().open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC, 0));
        if (!directory_ || fstat(directory_.get(), &state) != 0)
            return; // the system tells why when the path is used
        path_ = "/proc/self/fd/" + std::to_string(directory_.get()) + "/" +
                path.substr(separator == std::string::npos ? 0 : separator + 1);
        identity_.emplace(state.st_uid, state.st_gid);
    }

    const char* path() const { return path_.c_str(); }

private:
    std::string path_;
    FileDescriptor directory_;
    std::optional<ActingAs> identity_;
};

int openOnce(const std::string& path, int flags) {
    flags |= O_CLOEXEC | O_NOCTTY;
    if ((flags & O_ACCMODE) == O_RDONLY)
        return systemCalls().open(path.c_str(), flags, fileMode);
    const StopDeferral deferral; // who is ended here would leave the thread another user
    const Place place(path);
    return systemCalls().open(place.path(), flags, fileMode);
}

std::unique_ptr<LinuxOpenFile> openNative(const std::string& path, int flags) {
    int descriptor = -1;
    do {
        checkpoint();
        descriptor = openOnce(path, flags);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return nullptr;
    auto file = std::make_unique<LinuxOpenFile>(descriptor);
    if (!isRefused(descriptor, flags))
        return file;
    errno = EACCES;
    return nullptr;
}

/// The state of a directory's entry, of a link that of its target.
bool statEntry(const std::string& path, struct stat& state, bool& isLink) {
    if (lstat(path.c_str(), &state) != 0)
        return false;
    isLink = S_ISLNK(state.st_mode);
    return !isLink || systemCalls().stat(path.c_str(), &state) == 0;
}

/// A pattern of the system's matcher in which only "*" and "?" mean more than themselves.
std::string withoutSets(std::string_view pattern) {
    std::string plain;
    for (const char c : pattern)
        plain.append(c == '[' ? "[[]" : std::string(1, c));
    return plain;
}

std::string lastComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const size_t separator = path.rfind('/');
    return std::string(separator == std::string_view::npos || path.size() == 1 ? path : path.substr(separator + 1));
}

FoundFile describe(std::string name, const struct stat& state) {
    FoundFile found;
    found.name = std::move(name);
    maskControlBytes(found.name);
    found.size = static_cast<uint64_t>(state.st_size);
    found.created = state.st_ctim.tv_sec;
    found.accessed = state.st_atim.tv_sec;
    found.modified = state.st_mtim.tv_sec;
    if (S_ISDIR(state.st_mode))
        found.attributes |= FileAttribute::directory;
    else if (!S_ISREG(state.st_mode))
        found.attributes |= FileAttribute::device;
    if (!(state.st_mode & anyWrite))
        found.attributes |= FileAttribute::readOnly;
    if (found.name.starts_with('.') && found.name != "." && found.name != "..")
        found.attributes |= FileAttribute::hidden;
    if (found.attributes == 0)
        found.attributes = FileAttribute::normal;
    return found;
}

bool copyData(LinuxOpenFile& from, LinuxOpenFile& to, uint32_t& error) {
    std::string block(copyBlock, '\0');
    for (size_t count = 1; count > 0;) {
        size_t written = 0;
        if (!from.read(block.data(), block.size(), count, error) ||
            !to.write(std::string_view(block).substr(0, count), written, error))
            return false;
    }
    return true;
}

bool isSameFile(const std::string& path, const std::string& other) {
    struct stat state {};
    struct stat otherState {};
    return systemCalls().stat(path.c_str(), &state) == 0 && systemCalls().stat(other.c_str(), &otherState) == 0 &&
           FileIdentity(state) == FileIdentity(otherState);
}

bool copyNative(const std::string& from, const std::string& to, bool overwrite, bool durable, uint32_t& error) {
    const auto source = openNative(from, O_RDONLY);
    if (!source)
        return answer(false, error);
    if (overwrite && isSameFile(from, to)) { // emptying the target would lose both
        error = NativeError::sharingViolation;
        return false;
    }
    const auto target = openNative(to, O_WRONLY | O_CREAT | (overwrite ? O_TRUNC : O_EXCL));
    if (!target)
        return answer(false, error);
    if (copyData(*source, *target, error) && target->takeModeOf(*source, error) && (!durable || target->sync(error)) &&
        target->close(error))
        return true;
    systemCalls().unlink(to.c_str()); // half a copy helps nobody
    return false;
}

/// Makes a new name survive a power cut.
bool syncDirectoryOf(const std::string& path, uint32_t& error) {
    const size_t separator = path.rfind('/');
    const std::string directory = separator == std::string::npos ? "." : path.substr(0, separator + 1);
    const int descriptor = systemCalls().open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (descriptor < 0)
        return answer(false, error);
    int result = 0;
    do {
        result = systemCalls().fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    answer(result == 0 || errno == EINVAL, error); // EINVAL: nothing there that could be flushed
    systemCalls().close(descriptor);
    return error == NativeError::success;
}

/// A rename between volumes, by way of a copy beside the target, so that the final name is always whole.
bool moveAcrossVolumes(const std::string& from, const std::string& to, uint32_t& error) {
    const std::string temporary = to + ".moving";
    if (!copyNative(from, temporary, true, true, error))
        return false;
    if (!answer(systemCalls().rename(temporary.c_str(), to.c_str()) == 0, error)) {
        systemCalls().unlink(temporary.c_str());
        return false;
    }
    systemCalls().unlink(from.c_str());
    return true;
}

bool syncFile(const std::string& path, uint32_t& error) {
    const auto file = openNative(path, O_RDONLY);
    if (!file)
        return answer(false, error);
    if (file->sync(error))
        return true;
    error = NativeError::writeFault; // the kernel tells it once; a further attempt would seem to succeed
    return false;
}

bool moveReplacing(const std::string& from, const std::string& to, uint32_t& error) {
    if (!syncFile(from, error))
        return false;
    if (systemCalls().rename(from.c_str(), to.c_str()) != 0) {
        if (errno != EXDEV)
            return answer(false, error);
        if (!moveAcrossVolumes(from, to, error))
            return false;
    }
    return syncDirectoryOf(to, error);
}

/// The new name doesn't survive a power cut before its directory is flushed.
bool renameWithoutReplacing(const std::string& from, const std::string& to, uint32_t& error) {
    if (!syncFile(from, error))
        return false;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return answer(true, error);
    struct stat state {};
    if (errno != EINVAL && errno != ENOSYS && errno != EXDEV)
        return answer(false, error);
    if (systemCalls().stat(to.c_str(), &state) == 0) {
        error = NativeError::alreadyExists;
        return false;
    }
    return moveReplacing(from, to, error);
}

bool moveWithoutReplacing(const std::string& from, const std::string& to, uint32_t& error) {
    return renameWithoutReplacing(from, to, error) && syncDirectoryOf(to, error);
}
} // namespace

SystemCalls& systemCalls() {
    static SystemCalls calls{openForReal, makeDirectoryForReal};
    return calls;
}

std::unique_ptr<OpenFile> LinuxFileSystem::openFile(std::string_view path, OpenMode mode, uint32_t& error) {
    auto file = openNative(toNativePath(path), flagsOf(mode));
    answer(file != nullptr, error);
    return file;
}

bool LinuxFileSystem::find(std::string_view path, FoundFile& found, uint32_t& error) {
    checkpoint();
    const std::string native = toNativePath(path);
    struct stat state {};
    if (!answer(systemCalls().stat(native.c_str(), &state) == 0, error))
        return false;
    found = describe(lastComponent(native), state);
    return true;
}

bool LinuxFileSystem::findExecutable(std::string_view path) {
    checkpoint();
    return !findIgnoringCase(toNativePath(path)).empty();
}

bool LinuxFileSystem::scan(std::string_view directory, std::string_view pattern, std::vector<FoundFile>& found,
                           uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    std::string native = directory.empty() ? "./" : toNativePath(directory);
    if (!native.ends_with('/'))
        native += '/';
    DirectoryReader entries(native);
    if (!entries)
        return answer(false, error);
    const std::string wanted = withoutSets(pattern);
    const bool isRead = entries.forEach([&](const char* name, uint64_t /*inode*/) {
        struct stat state {};
        bool isLink = false;
        if (fnmatch(wanted.c_str(), name, FNM_NOESCAPE) == 0 && statEntry(native + name, state, isLink)) {
            found.push_back(describe(name, state));
            if (isLink)
                found.back().attributes |= FileAttribute::reparsePoint;
        }
        return true;
    });
    return answer(isRead, error);
}

bool LinuxFileSystem::copy(std::string_view from, std::string_view to, bool overwrite, uint32_t& error) {
    return copyNative(toNativePath(from), toNativePath(to), overwrite, false, error);
}

bool LinuxFileSystem::move(std::string_view from, std::string_view to, bool replace, uint32_t& error) {
    checkpoint();
    const std::string source = toNativePath(from);
    const std::string target = toNativePath(to);
    return replace ? moveReplacing(source, target, error) : moveWithoutReplacing(source, target, error);
}

void LinuxFileSystem::moveTogether(const std::vector<FileMove>& moves, std::vector<uint32_t>& errors) {
    errors.assign(moves.size(), NativeError::success);
    for (size_t i = 0; i < moves.size(); ++i) {
        checkpoint();
        renameWithoutReplacing(toNativePath(moves[i].from), toNativePath(moves[i].to), errors[i]);
    }
    uint32_t error = NativeError::success;
    if (moves.empty() || syncDirectoryOf(toNativePath(moves.front().to), error))
        return;
    for (uint32_t& each : errors)
        each = each == NativeError::success ? error : each;
}

bool LinuxFileSystem::remove(std::string_view path, uint32_t& error) {
    checkpoint();
    return answer(systemCalls().unlink(toNativePath(path).c_str()) == 0, error);
}

bool LinuxFileSystem::isWritable(std::string_view directory) {
    checkpoint();
    return faccessat(AT_FDCWD, toNativePath(directory).c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool LinuxFileSystem::makeDirectory(std::string_view path, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    const Place place(toNativePath(path));
    return answer(systemCalls().mkdir(place.path(), directoryMode) == 0, error);
}

bool LinuxFileSystem::setAttributes(std::string_view path, uint32_t attributes, uint32_t& error) {
    checkpoint();
    const std::string native = toNativePath(path);
    // By a descriptor: whoever puts a link under the name must not have another file's mode changed.
    const FileDescriptor file(systemCalls().open(native.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC, 0));
    struct stat state {};
    if (!file || systemCalls().fstat(file.get(), &state) != 0)
        return answer(false, error);
    const mode_t mode = state.st_mode & 07777U;
    const bool readOnly = (attributes & FileAttribute::readOnly) != 0;
    mode_t wanted = readOnly ? mode & ~anyWrite : mode;
    if (!readOnly && !(mode & anyWrite))
        wanted |= S_IWUSR;
    if (wanted == mode)
        return answer(true, error);
    if (S_ISLNK(state.st_mode)) {
        error = NativeError::accessDenied;
        return false;
    }
    return answer(systemCalls().chmod(("/proc/self/fd/" + std::to_string(file.get())).c_str(), wanted) == 0, error);
}

bool LinuxFileSystem::fullPath(std::string_view path, std::string& full, uint32_t& error) {
    const std::string native = toNativePath(path);
    std::string directory;
    if (!native.starts_with('/') && !currentDirectory(directory, error))
        return false;
    full = (std::filesystem::path(directory) / native).lexically_normal().string();
    error = NativeError::success;
    return true;
}

bool LinuxFileSystem::currentDirectory(std::string& path, uint32_t& error) {
    std::array<char, PATH_MAX> buffer{};
    if (!answer(getcwd(buffer.data(), buffer.size()) != nullptr, error))
        return false;
    path = buffer.data();
    return true;
}

bool LinuxFileSystem::windowsDirectory(std::string&, uint32_t& error) {
    error = NativeError::notSupported;
    return false;
}

uint32_t LinuxFileSystem::driveType(std::string_view drive) {
    return drive == "C:" || drive == "c:" ? DriveType::fixed : DriveType::unknown;
}

bool LinuxFileSystem::freeSpace(std::string_view path, uint64_t& bytes, uint32_t& error) {
    struct statvfs state {};
    if (!answer(statvfs(toNativePath(path).c_str(), &state) == 0, error))
        return false;
    bytes = static_cast<uint64_t>(state.f_bavail) * state.f_frsize;
    return true;
}

bool LinuxFileSystem::deviceOfDrive(std::string_view, std::string&) {
    return false;
}

bool LinuxFileSystem::environment(std::string_view name, std::string& value) {
    const char* found = std::getenv(std::string(name).c_str());
    if (found)
        value = found;
    return found != nullptr;
}

} // namespace Velmor
