#pragma once

#include "shared/library/common/time/DateTime.h"

#include <cstdint>
#include <functional>

namespace Velmor {

/// A deadline.
class Timer {
public:
    virtual ~Timer() = default;

    void setEnd(const DateTime& end) { end_ = end; }
    /// True if the deadline lies before now; one that is exactly now hasn't passed.
    bool expired() const { return end_ < DateTime(); }

    /// Suspends the calling thread. All timed sleeps of the system go through here.
    static void sleep(uint32_t milliseconds);

    /// Looks at `condition` every `step` milliseconds until it holds, or `limit` milliseconds have been slept. True if
    /// it holds.
    static bool waitUntil(uint32_t limit, uint32_t step, const std::function<bool()>& condition);

private:
    DateTime end_; // now at construction
};

} // namespace Velmor
