#pragma once

#include <cstdint>

namespace Velmor {

/// Keeps a report that could come in floods down: it passes at once, and then at most once in `pause`. One thread at a
/// time uses an object.
class ReportLimit {
public:
    static constexpr uint32_t minute = 60000; // milliseconds

    explicit ReportLimit(uint32_t pause = minute) : pause_(pause) {}

    /// Counts one occasion. True if it is to be told now: `count` is then how many have come since the last report,
    /// this one too.
    bool passes(uint32_t& count);

    /// The next occasion is told at once.
    void restart() { hasReported_ = false; }

private:
    uint32_t pause_; // milliseconds
    bool hasReported_ = false;
    uint32_t reported_ = 0; // ticks of the clock
    uint32_t count_ = 0;
};

} // namespace Velmor
