#include "platform/linux/files/LinuxOpenFile.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/files/NativePath.h"
#include "platform/linux/files/SystemCalls.h"
#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <utility>

namespace Velmor {

namespace {
bool answer(bool succeeded, uint32_t& error) {
    error = succeeded ? NativeError::success : nativeError(errno);
    return succeeded;
}
} // namespace

LinuxOpenFile::~LinuxOpenFile() {
    if (descriptor_ >= 0)
        systemCalls().close(descriptor_);
}

bool LinuxOpenFile::read(char* buffer, size_t size, size_t& count, uint32_t& error) {
    ssize_t result = 0;
    do {
        checkpoint();
        result = systemCalls().read(descriptor_, buffer, size);
    } while (result < 0 && errno == EINTR);
    count = result > 0 ? static_cast<size_t>(result) : 0;
    return answer(result >= 0, error);
}

bool LinuxOpenFile::write(std::string_view data, size_t& written, uint32_t& error) {
    checkpoint();
    written = 0;
    while (written < data.size()) {
        const ssize_t result = systemCalls().write(descriptor_, data.data() + written, data.size() - written);
        if (result < 0 && errno != EINTR)
            return answer(false, error);
        if (result == 0) { // a device that takes nothing would hold the thread for ever
            error = NativeError::diskFull;
            return false;
        }
        written += result > 0 ? static_cast<size_t>(result) : 0;
    }
    error = NativeError::success;
    return true;
}

bool LinuxOpenFile::seek(uint64_t offset, uint32_t& error) {
    return answer(lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) >= 0, error);
}

bool LinuxOpenFile::size(uint64_t& bytes, uint32_t& error) {
    struct stat state {};
    if (!answer(systemCalls().fstat(descriptor_, &state) == 0, error))
        return false;
    bytes = static_cast<uint64_t>(state.st_size);
    return true;
}

bool LinuxOpenFile::truncate(uint64_t bytes, uint32_t& error) {
    return answer(systemCalls().ftruncate(descriptor_, static_cast<off_t>(bytes)) == 0, error);
}

bool LinuxOpenFile::isAt(std::string_view path) {
    struct stat own {};
    struct stat there {};
    checkpoint();
    if (systemCalls().stat(toNativePath(path).c_str(), &there) != 0)
        return errno != ENOENT && errno != ENOTDIR; // what can't be looked at isn't gone for that
    return systemCalls().fstat(descriptor_, &own) != 0 || FileIdentity(own) == FileIdentity(there);
}

bool LinuxOpenFile::isLinked() {
    struct stat own {};
    checkpoint();
    return systemCalls().fstat(descriptor_, &own) != 0 || own.st_nlink > 0;
}

bool LinuxOpenFile::close(uint32_t& error) {
    const int result = systemCalls().close(descriptor_);
    descriptor_ = -1; // the kernel has let go of it whatever it answers
    return answer(result == 0 || errno == EINTR, error);
}

int LinuxOpenFile::release() {
    return std::exchange(descriptor_, -1);
}

bool LinuxOpenFile::takeModeOf(const LinuxOpenFile& other, uint32_t& error) {
    constexpr mode_t permissions = 07777;
    struct stat own {};
    struct stat wanted {};
    const bool known =
        systemCalls().fstat(descriptor_, &own) == 0 && systemCalls().fstat(other.descriptor_, &wanted) == 0;
    const bool differs = ((own.st_mode ^ wanted.st_mode) & permissions) != 0;
    return answer(known && (!differs || systemCalls().fchmod(descriptor_, wanted.st_mode & permissions) == 0), error);
}

bool LinuxOpenFile::sync(uint32_t& error) {
    int result = 0;
    do {
        checkpoint();
        result = systemCalls().fdatasync(descriptor_);
    } while (result != 0 && errno == EINTR);
    return answer(result == 0 || errno == EINVAL, error); // EINVAL: nothing there that could be flushed
}

} // namespace Velmor
