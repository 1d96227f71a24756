#pragma once

#include "platform/PerformanceLayout.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// A counter of an object on paper; `size` bytes of its value are written.
struct PaperCounter {
    uint32_t title = 0;
    uint32_t type = PerfType::rawCount;
    uint32_t size = 4;
};

/// An object on paper: its counters, and the values of each instance in the order of the counters.
struct PaperObject {
    std::vector<PaperCounter> counters;
    std::vector<std::vector<int64_t>> instances;
    bool hasInstances = true; // without, the first list of values stands alone
    int64_t perfTime = 0;
    int64_t perfFreq = 0;
};

/// A block of raw performance data on paper.
struct PaperSample {
    std::vector<PaperObject> objects;
    uint32_t littleEndian = 1;
    int64_t perfTime = 0;
    int64_t perfFreq = 0;
    int64_t perfTime100ns = 0;

    /// The block in its published layout.
    std::string bytes() const;
};

} // namespace Velmor
