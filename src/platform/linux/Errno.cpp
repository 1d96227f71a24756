#include "platform/linux/Errno.h"

#include "platform/Errors.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace Velmor {

namespace {
struct ErrorPair {
    int system;
    uint32_t native;
};

constexpr std::array<ErrorPair, 27> errorPairs{{
    {0, NativeError::success},
    {EPERM, NativeError::accessDenied},
    {ENOENT, NativeError::fileNotFound},
    {ESRCH, NativeError::invalidParameter},
    {EIO, NativeError::ioDevice},
    {EBADF, NativeError::invalidHandle},
    {EAGAIN, NativeError::notEnoughMemory},
    {ENOMEM, NativeError::notEnoughMemory},
    {EACCES, NativeError::accessDenied},
    {EBUSY, NativeError::sharingViolation},
    {EEXIST, NativeError::alreadyExists},
    {ENOTDIR, NativeError::pathNotFound},
    {EISDIR, NativeError::accessDenied},
    {EINVAL, NativeError::invalidParameter},
    {ENFILE, NativeError::tooManyOpenFiles},
    {EMFILE, NativeError::tooManyOpenFiles},
    {ETXTBSY, NativeError::sharingViolation},
    {EFBIG, NativeError::diskFull},
    {ENOSPC, NativeError::diskFull},
    {EDQUOT, NativeError::diskFull},
    {EROFS, NativeError::writeProtect},
    {ENAMETOOLONG, NativeError::invalidName},
    {ENOTEMPTY, NativeError::directoryNotEmpty},
    {ENOSYS, NativeError::notSupported},
    {EOPNOTSUPP, NativeError::notSupported},
    {ECONNREFUSED, NativeError::fileNotFound},
    {ETIMEDOUT, NativeError::timeout},
}};
} // namespace

uint32_t nativeError(int systemError) {
    const auto row = std::find_if(errorPairs.begin(), errorPairs.end(),
                                  [=](const ErrorPair& pair) { return pair.system == systemError; });
    return row == errorPairs.end() ? NativeError::generalFailure : row->native;
}

} // namespace Velmor
