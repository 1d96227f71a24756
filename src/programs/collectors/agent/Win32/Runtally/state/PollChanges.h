#pragma once

#include "process/Process.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace Velmor {

/// What a poll has found and is being reported. It outlives the poller's thread: the snapshot has moved on, and nobody
/// finds it a second time. The poller's thread uses it.
class PollChanges {
public:
    /// Takes the changes of a poll over; all former ones have been reported.
    void take(std::vector<ProcessPointer> changes);

    /// Gives `report` one after the other. If a former thread was ended by force on its way, this goes on behind the
    /// change that it died at, and comes back to that one at the end, unless `isDone` says that it was finished with.
    /// One that a thread dies at twice is given up, and told to `giveUp`.
    void report(const std::function<void(const ProcessPointer& change, size_t number, size_t count)>& report,
                const std::function<bool(const ProcessPointer&)>& isDone,
                const std::function<void(const ProcessPointer&)>& giveUp);

    void clear() { take({}); }

private:
    std::vector<ProcessPointer> changes_;
    size_t next_ = 0;          // to be reported next
    size_t firstTime_ = 0;     // how many are reported for the first time; those behind them for the second
    bool isReporting_ = false; // the one before `next_`
};

} // namespace Velmor
