#pragma once

#include "platform/linux/files/SystemCalls.h"

#include <cerrno>

namespace Velmor {

/// What a replaced call answers that fails with an errno.
inline int failed(int error) {
    errno = error;
    return -1;
}

/// Calls of the system may be replaced while it lives.
struct ReplacedCalls {
    ReplacedCalls() = default;
    ReplacedCalls(const ReplacedCalls&) = delete;
    ReplacedCalls& operator=(const ReplacedCalls&) = delete;
    ~ReplacedCalls() { systemCalls() = real; }

    const SystemCalls real = systemCalls();
};

/// Spares the disk: what a power cut would leave isn't asked then.
struct NoSync : ReplacedCalls {
    NoSync() {
        systemCalls().fdatasync = [](int) { return 0; };
        systemCalls().fsync = [](int) { return 0; };
    }
};

} // namespace Velmor
