#include "platform/linux/base/NewEntry.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace Velmor {

namespace {
constexpr mode_t allBits = 07777;
} // namespace

FileDescriptor openExactly(int directory, const std::string& name, int flags, mode_t mode) {
    const bool mayBeThere = (flags & O_EXCL) == 0;
    for (int attempts = 0;; ++attempts) {
        // One that is there is opened without the wish to make it, which the kernel refuses for others' files.
        if (mayBeThere)
            if (FileDescriptor file(openat(directory, name.c_str(), flags & ~O_CREAT));
                file || errno != ENOENT || !(flags & O_CREAT))
                return file;
        FileDescriptor file(openat(directory, name.c_str(), flags | O_CREAT | O_EXCL, mode));
        if (file)
            return fchmod(file.get(), mode) == 0 ? std::move(file) : FileDescriptor();
        if (errno != EEXIST || !mayBeThere)
            return file;
        if (attempts > 0) // a link that leads to no file yet
            return FileDescriptor(openat(directory, name.c_str(), flags, mode));
    }
}

bool makeDirectoryExactly(int directory, const std::string& name, mode_t mode) {
    int made = mkdirat(directory, name.c_str(), mode);
    if (made != 0 && errno == EPERM) { // a service may be kept from setting groups; it makes all with its own then
        mode &= ~static_cast<mode_t>(S_ISGID);
        made = mkdirat(directory, name.c_str(), mode);
    }
    const FileDescriptor entry(
        made == 0 ? openat(directory, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
    struct stat state {};
    if (!entry || fstat(entry.get(), &state) != 0)
        return false;
    const mode_t wanted = mode | (state.st_mode & S_ISGID);
    return (state.st_mode & allBits) == wanted ||
           fchmodat(AT_FDCWD, ("/proc/self/fd/" + std::to_string(entry.get())).c_str(), wanted, 0) == 0;
}

} // namespace Velmor
