#pragma once

#include "process/performance/OscCounter.h"
#include "process/performance/PerformanceSample.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// A counter that the system knows.
struct CounterName {
    uint32_t index = 0; // title index
    std::string name;
};

/// A handle on the system's performance data. A round is a collection, updates of any number of counters, and the step
/// to the next sample. One thread at a time uses a query.
struct OscQuery {
    static constexpr uint32_t startSize = 25600;

    std::unique_ptr<PerformanceSample> current; // what the round works on
    std::unique_ptr<PerformanceSample> second;  // the later one for differences, taken on first need
    std::vector<CounterName> names;             // the counters of the first object; empty unless asked for
    uint32_t bufferSize = startSize;            // bytes to ask for; grows for the sample in hand
    uint32_t littleEndian = 0;                  // of the last sample
};

/// Makes a query; with `withNames` not 0 it knows the names of the counters, if the system tells them. Null if there is
/// no memory for it.
std::unique_ptr<OscQuery> OscOpenQuery(int32_t withNames);

/// Gives a query up, and clears the caller's pointer. Always 0.
int32_t OscCloseQuery(std::unique_ptr<OscQuery>& query);

/// Begins a round: 0 if there is a sample now, which may be the later one of the round before; -1 if none can be had,
/// or for a null query.
int32_t OscCollectQueryData(OscQuery* query);

/// Gathers the present value of a counter by its mode. The first counter of a round that needs a difference takes the
/// later sample, 50 milliseconds after the first one in the first round. 0; -1 for a null query; -2 if the process or
/// the counter isn't in the sample, if no later sample can be had, or for a negative value: then the counter's status
/// is 1 and nothing else of it changes. A counter that is gone from the later sample counts as 0.
int32_t OscUpdateCounter(OscQuery* query, OscCounter& counter);

/// Ends a round: the later sample is the first one of the next. 0, or -1 for a null query.
int32_t OscNextSample(OscQuery* query);

/// The title index of a counter, whose name is compared without regard to case; 0 if no name fits.
uint32_t OscFindCounter(const OscQuery* query, std::string_view name);

} // namespace Velmor
