#include "platform/Platform.h"

#include <atomic>

namespace Velmor {

namespace {
std::atomic<const Platform*> inForce{nullptr};
}

const Platform& platform() {
    const Platform* current = inForce.load(std::memory_order_acquire);
    return current ? *current : nativePlatform();
}

void usePlatform(const Platform* other) {
    inForce.store(other, std::memory_order_release);
}

} // namespace Velmor
