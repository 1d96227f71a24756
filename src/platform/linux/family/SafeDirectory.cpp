#include "platform/linux/family/SafeDirectory.h"

#include "platform/linux/base/NewEntry.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr mode_t permissions = 07777;

/// Users outside the group may write, and take away what others wrote.
bool isOpenToOthers(const struct stat& state) {
    return (state.st_mode & S_IWOTH) != 0 && (state.st_mode & S_ISVTX) == 0;
}

FileDescriptor openDirectory(const std::string& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// Makes a directory whose parent is there. True if it is there afterwards.
bool makeDirectory(const std::string& parent, const std::string& name, mode_t mode) {
    const FileDescriptor place = openDirectory(parent);
    struct stat state {};
    if (!place || fstat(place.get(), &state) != 0)
        return false;
    const ActingAs owner(state.st_uid, state.st_gid);
    return makeDirectoryExactly(place.get(), name, mode) || errno == EEXIST;
}

bool makeMissing(const std::string& path, mode_t mode) {
    for (size_t begin = 0; begin != std::string::npos;) {
        const size_t separator = path.find('/', begin + 1);
        const std::string name = path.substr(begin, separator - begin);
        const std::string part = path.substr(0, separator);
        const bool isLast = separator == std::string::npos;
        struct stat state {};
        if (name.size() > 1 && stat(part.c_str(), &state) != 0 &&
            !makeDirectory(begin == 0 ? (path.front() == '/' ? "/" : ".") : path.substr(0, begin),
                           name.substr(name.front() == '/' ? 1 : 0), isLast ? mode : SafeDirectory::usualMode))
            return false;
        begin = separator;
    }
    return true;
}

bool writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return false;
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return fsync(file) == 0;
}
} // namespace

SafeDirectory::SafeDirectory(const std::string& path, mode_t mode) {
    std::string plain = path;
    while (plain.size() > 1 && plain.ends_with('/'))
        plain.pop_back();
    directory_ = openDirectory(plain);
    if (!directory_ && errno == ENOENT && makeMissing(plain, mode))
        directory_ = openDirectory(plain);
    struct stat state {};
    if (!directory_ || fstat(directory_.get(), &state) != 0)
        return;
    if (isOpenToOthers(state)) {
        directory_ = FileDescriptor();
        errno = EPERM;
        return;
    }
    identity_ = std::make_unique<ActingAs>(state.st_uid, state.st_gid);
}

FileDescriptor SafeDirectory::openFile(const std::string& name, int flags, mode_t mode) const {
    return openExactly(get(), name, flags | O_NOFOLLOW | O_CLOEXEC, mode);
}

bool SafeDirectory::writeFile(const std::string& name, std::string_view text, mode_t mode) const {
    static std::atomic<uint32_t> count{0};
    const std::string temporary = "." + name + "." + std::to_string(getpid()) + "." + std::to_string(++count) + ".new";
    const FileDescriptor file = openFile(temporary, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file)
        return false;
    const bool written = writeAll(file.get(), text) && renameat(get(), temporary.c_str(), get(), name.c_str()) == 0;
    if (written)
        return fsync(get()) == 0 || errno == EINVAL;
    const int error = errno;
    remove(temporary);
    errno = error;
    return false;
}

bool SafeDirectory::setMode(const std::string& name, mode_t mode) const {
    const FileDescriptor entry(openat(get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat state {};
    if (!entry || fstat(entry.get(), &state) != 0)
        return false;
    if (S_ISLNK(state.st_mode) || state.st_nlink > 1) {
        errno = EPERM;
        return false;
    }
    return (state.st_mode & permissions) == mode ||
           chmod(("/proc/self/fd/" + std::to_string(entry.get())).c_str(), mode) == 0;
}

bool SafeDirectory::remove(const std::string& name) const {
    return unlinkat(get(), name.c_str(), 0) == 0;
}

std::string directoryProblem(const std::string& path) {
    struct stat state {};
    if (stat(path.c_str(), &state) != 0 || !isOpenToOthers(state))
        return {};
    return "Any user can change what lies in \"" + path + "\"; mend it by: chmod o-w '" + path + "'";
}

} // namespace Velmor
