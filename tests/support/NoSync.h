#pragma once

#include "platform/linux/files/SystemCalls.h"

namespace Velmor {

/// Spares the disk while it lives: what a power cut would leave isn't asked then.
class NoSync {
public:
    NoSync() : saved_(systemCalls()) {
        systemCalls().fdatasync = [](int) { return 0; };
        systemCalls().fsync = [](int) { return 0; };
    }
    NoSync(const NoSync&) = delete;
    NoSync& operator=(const NoSync&) = delete;
    ~NoSync() { systemCalls() = saved_; }

private:
    SystemCalls saved_;
};

} // namespace Velmor
