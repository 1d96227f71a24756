#pragma once

#include <cstdint>
#include <ctime>

namespace Velmor {

/// The kernel's clocks, and the units in which it and the native API count.
namespace KernelClock {

constexpr int64_t second = 1'000'000'000;     // nanoseconds
constexpr int64_t unit = 100;                 // nanoseconds: in these the native API counts
constexpr int64_t epoch = 116444736000000000; // units from 1601-01-01 to 1970-01-01

/// Nanoseconds.
int64_t now(clockid_t clock);

/// How far a clock is ahead of the monotonic one, in nanoseconds.
int64_t aheadOfMonotonic(clockid_t clock);

/// Native time of nanoseconds since 1970.
constexpr int64_t nativeTime(int64_t sinceEpoch) {
    return sinceEpoch / unit + epoch;
}

/// When a moment in clock ticks since the system's start was, in nanoseconds since 1970.
int64_t sinceEpoch(uint64_t ticks);

/// Nanoseconds of one of the clock ticks in which /proc counts.
int64_t tick();

} // namespace KernelClock

} // namespace Velmor
