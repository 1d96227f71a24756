#include "programs/collectors/agent/Win32/Runtally/state/PollChanges.h"

#include <utility>

namespace Velmor {

void PollChanges::take(std::vector<ProcessPointer> changes) {
    isReporting_ = false;
    next_ = 0;
    firstTime_ = changes.size();
    changes_ = std::move(changes);
}

void PollChanges::report(const std::function<void(const ProcessPointer& change, size_t number, size_t count)>& report,
                         const std::function<bool(const ProcessPointer&)>& isDone,
                         const std::function<void(const ProcessPointer&)>& giveUp) {
    if (std::exchange(isReporting_, false)) {
        const ProcessPointer interrupted = changes_[next_ - 1];
        if (!isDone(interrupted)) {
            if (next_ > firstTime_)
                giveUp(interrupted);
            else
                changes_.push_back(interrupted);
        }
    }
    while (next_ < changes_.size()) {
        const ProcessPointer change = changes_[next_++];
        isReporting_ = true;
        report(change, next_, changes_.size());
        isReporting_ = false;
    }
    clear();
}

} // namespace Velmor
