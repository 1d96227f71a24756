#include "platform/linux/base/Errno.h"

#include "platform/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace Velmor {

namespace {
struct ErrorPair {
    int system;
    uint32_t native;
};

// Where several share a native number, the first speaks for it.
constexpr std::array<ErrorPair, 32> errorPairs{{
    {0, NativeError::success},
    {ENOENT, NativeError::fileNotFound},
    {ECONNREFUSED, NativeError::fileNotFound},
    {ENOTCONN, NativeError::fileNotFound},
    {EPIPE, NativeError::fileNotFound},
    {ENOTDIR, NativeError::pathNotFound},
    {EMFILE, NativeError::tooManyOpenFiles},
    {ENFILE, NativeError::tooManyOpenFiles},
    {EACCES, NativeError::accessDenied},
    {EPERM, NativeError::accessDenied},
    {EISDIR, NativeError::accessDenied},
    {EBADF, NativeError::invalidHandle},
    {ENOMEM, NativeError::notEnoughMemory},
    {EAGAIN, NativeError::notEnoughMemory},
    {ENOBUFS, NativeError::notEnoughMemory},
    {EROFS, NativeError::writeProtect},
    {EBUSY, NativeError::sharingViolation},
    {ETXTBSY, NativeError::sharingViolation},
    {ENOSYS, NativeError::notSupported},
    {EOPNOTSUPP, NativeError::notSupported},
    {EINVAL, NativeError::invalidParameter},
    {ESRCH, NativeError::invalidParameter},
    {EMSGSIZE, NativeError::invalidParameter},
    {ENOSPC, NativeError::diskFull},
    {EFBIG, NativeError::diskFull},
    {EDQUOT, NativeError::diskFull},
    {ENAMETOOLONG, NativeError::invalidName},
    {ENOTEMPTY, NativeError::directoryNotEmpty},
    {EEXIST, NativeError::alreadyExists},
    {EADDRINUSE, NativeError::alreadyExists},
    {EIO, NativeError::ioDevice},
    {ETIMEDOUT, NativeError::timeout},
}};
} // namespace

uint32_t nativeError(int systemError) {
    const auto row = std::find_if(errorPairs.begin(), errorPairs.end(),
                                  [=](const ErrorPair& pair) { return pair.system == systemError; });
    return row == errorPairs.end() ? NativeError::generalFailure : row->native;
}

std::string nativeErrorText(uint32_t nativeError) {
    const auto row = std::find_if(errorPairs.begin(), errorPairs.end(),
                                  [=](const ErrorPair& pair) { return pair.native == nativeError; });
    return row == errorPairs.end() ? "Error " + std::to_string(nativeError) : std::strerror(row->system);
}

} // namespace Velmor
