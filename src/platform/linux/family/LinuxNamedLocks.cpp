#include "platform/linux/family/LinuxNamedLocks.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/family/Directories.h"
#include "platform/linux/family/SafeDirectory.h"
#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr mode_t ownMode = 0600;
constexpr mode_t familyMode = 0660;

class LockedFile : public NamedLock {
public:
    explicit LockedFile(FileDescriptor file) : file_(std::move(file)) {}

private:
    StopDeferral deferral_;
    FileDescriptor file_;
};

SafeDirectory lockDirectory() {
    return SafeDirectory(runtimeDirectory() + "/lock", SafeDirectory::sharedMode);
}

bool isAt(const FileDescriptor& file, const SafeDirectory& directory, const std::string& name) {
    struct stat own {};
    struct stat there {};
    return fstat(file.get(), &own) == 0 && fstatat(directory.get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           FileIdentity(own) == FileIdentity(there);
}
} // namespace

FileDescriptor takeNamedLock(std::string_view name, NamedLockAccess access, uint32_t& error) {
    const std::string fileName = asFileName(std::string(name));
    const SafeDirectory directory = lockDirectory();
    const bool isOwn = access == NamedLockAccess::own;
    while (directory) {
        FileDescriptor file = directory.openFile(fileName, O_RDWR | O_CREAT, isOwn ? ownMode : familyMode);
        if (!file && errno == EACCES && isOwn && faccessat(directory.get(), fileName.c_str(), F_OK, 0) == 0)
            errno = EWOULDBLOCK; // another user's: nobody can tell whether it is held, so it is
        if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            break;
        // The holder before may have taken the file away between the two calls.
        if (isAt(file, directory, fileName)) {
            error = NativeError::success;
            return file;
        }
    }
    error = errno == EWOULDBLOCK ? NativeError::alreadyExists : nativeError(errno);
    return FileDescriptor();
}

void forgetNamedLock(std::string_view name) {
    if (const SafeDirectory directory = lockDirectory())
        directory.remove(asFileName(std::string(name)));
}

NamedLockHandle LinuxNamedLocks::create(std::string_view name, NamedLockAccess access, uint32_t& error) {
    checkpoint();
    const StopDeferral deferral;
    FileDescriptor file = takeNamedLock(name, access, error);
    return file ? std::make_unique<LockedFile>(std::move(file)) : nullptr;
}

} // namespace Velmor
