#include "platform/linux/family/LinuxNamedLocks.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/family/Directories.h"
#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr mode_t lockFileMode = 0600;

class LockedFile : public NamedLock {
public:
    explicit LockedFile(FileDescriptor file) : file_(std::move(file)) {}

private:
    StopDeferral deferral_;
    FileDescriptor file_;
};

std::string lockDirectory() {
    return runtimeDirectory() + "/lock";
}

bool isAt(const FileDescriptor& file, const std::string& path) {
    struct stat own {};
    struct stat there {};
    return fstat(file.get(), &own) == 0 && stat(path.c_str(), &there) == 0 && FileIdentity(own) == FileIdentity(there);
}

FileDescriptor openLockFile(const std::string& directory, const std::string& name) {
    const std::string path = directory + "/" + name;
    const auto open = [&](int flags) {
        return FileDescriptor(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, lockFileMode));
    };
    while (true) {
        FileDescriptor file = open(O_CREAT | O_EXCL);
        if (!file && errno == ENOENT && makeDirectoryTree(directory))
            file = open(O_CREAT | O_EXCL);
        if (file) {
            adoptOwnerOfDirectory(path);
            return file;
        }
        if (errno != EEXIST)
            return file;
        file = open(0);
        if (file || errno != ENOENT) // its holder has just taken it away: begin again
            return file;
    }
}
} // namespace

FileDescriptor takeNamedLock(std::string_view name, uint32_t& error) {
    const std::string fileName = asFileName(std::string(name));
    while (true) {
        FileDescriptor file = openLockFile(lockDirectory(), fileName);
        if (!file) {
            error = nativeError(errno);
            return FileDescriptor();
        }
        if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
            error = errno == EWOULDBLOCK ? NativeError::alreadyExists : nativeError(errno);
            return FileDescriptor();
        }
        // The holder before may have taken the file away between the two calls.
        if (isAt(file, lockDirectory() + "/" + fileName)) {
            error = NativeError::success;
            return file;
        }
    }
}

void forgetNamedLock(std::string_view name) {
    unlink((lockDirectory() + "/" + asFileName(std::string(name))).c_str());
}

NamedLockHandle LinuxNamedLocks::create(std::string_view name, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    FileDescriptor file = takeNamedLock(name, error);
    return file ? std::make_unique<LockedFile>(std::move(file)) : nullptr;
}

} // namespace Velmor
