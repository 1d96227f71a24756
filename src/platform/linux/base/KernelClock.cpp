#include "platform/linux/base/KernelClock.h"

#include <unistd.h>

namespace Velmor {

int64_t KernelClock::now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time.tv_sec * second + time.tv_nsec;
}

/// Read anew if this thread was held up between the two.
int64_t KernelClock::aheadOfMonotonic(clockid_t clock) {
    constexpr int64_t longestReading = 1'000'000;
    while (true) {
        const int64_t before = now(CLOCK_MONOTONIC);
        const int64_t there = now(clock);
        const int64_t after = now(CLOCK_MONOTONIC);
        if (after - before < longestReading)
            return there - after;
    }
}

int64_t KernelClock::sinceEpoch(uint64_t ticks) {
    return now(CLOCK_REALTIME) - now(CLOCK_BOOTTIME) + static_cast<int64_t>(ticks) * tick();
}

int64_t KernelClock::tick() {
    static const int64_t length = second / sysconf(_SC_CLK_TCK);
    return length;
}

} // namespace Velmor
