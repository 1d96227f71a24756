#pragma once

#include "platform/linux/base/FileDescriptor.h"

#include <cstdint>
#include <sys/eventfd.h>

namespace Velmor {

/// Wakes whoever polls its descriptor, until it is cleared. Any thread, and any signal handler, may ring it.
class WakeEvent {
public:
    WakeEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    explicit operator bool() const { return static_cast<bool>(descriptor_); }
    int descriptor() const { return descriptor_.get(); }

    void ring() const { ring(descriptor_.get()); }
    static void ring(int descriptor) {
        const uint64_t one = 1;
        const ssize_t written = write(descriptor, &one, sizeof(one));
        (void)written; // a counter that is full rings already
    }

    /// False with errno if it hadn't been rung.
    bool clear() const {
        uint64_t count = 0;
        return read(descriptor_.get(), &count, sizeof(count)) == sizeof(count);
    }

private:
    FileDescriptor descriptor_;
};

} // namespace Velmor
