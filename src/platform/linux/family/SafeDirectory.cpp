#include "platform/linux/family/SafeDirectory.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/fsuid.h>
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
    int made = mkdirat(place.get(), name.c_str(), mode);
    if (made != 0 && errno == EPERM) { // a service may be kept from setting groups; it makes all with its own then
        mode &= ~static_cast<mode_t>(S_ISGID);
        made = mkdirat(place.get(), name.c_str(), mode);
    }
    if (made != 0)
        return errno == EEXIST;
    const FileDescriptor directory(openat(place.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return directory && fchmod(directory.get(), mode) == 0;
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

ActingAs::ActingAs(uid_t user, gid_t group) {
    if (geteuid() != 0 || user == 0)
        return;
    isActing_ = true;
    group_ = static_cast<gid_t>(setfsgid(group));
    user_ = static_cast<uid_t>(setfsuid(user));
}

ActingAs::~ActingAs() {
    if (!isActing_)
        return;
    setfsuid(user_);
    setfsgid(group_);
}

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
    const int safe = (flags & ~O_CREAT) | O_NOFOLLOW | O_CLOEXEC;
    while (true) {
        // One that is there is opened without the wish to make it, which the kernel refuses for others' files.
        if (FileDescriptor file(openat(get(), name.c_str(), safe)); file || errno != ENOENT || !(flags & O_CREAT))
            return file;
        FileDescriptor file(openat(get(), name.c_str(), safe | O_CREAT | O_EXCL, mode));
        if (file && fchmod(file.get(), mode) != 0)
            return FileDescriptor();
        if (file || errno != EEXIST)
            return file;
    }
}

bool SafeDirectory::writeFile(const std::string& name, std::string_view text, mode_t mode) const {
    static std::atomic<uint32_t> count{0};
    const std::string temporary = "." + name + "." + std::to_string(getpid()) + "." + std::to_string(++count) + ".new";
    const FileDescriptor file(
        openat(get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!file)
        return false;
    const bool written = fchmod(file.get(), mode) == 0 && writeAll(file.get(), text) &&
                         renameat(get(), temporary.c_str(), get(), name.c_str()) == 0;
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
