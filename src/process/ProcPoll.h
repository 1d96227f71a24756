#pragma once

#include "process/Process.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/logger/Logger.h"

#include <cstdint>
#include <set>
#include <vector>

namespace Velmor {

/// Sees processes start and end by comparing the process table at two moments. The id is the whole identity here. One
/// thread uses it.
class ProcPoll {
public:
    ProcPoll() = default;
    ProcPoll(const ProcPoll&) = delete;
    ProcPoll& operator=(const ProcPoll&) = delete;
    virtual ~ProcPoll();

    void setLogger(const SmartPointer<LoggerUnit>& unit);

    /// Fills `list` with a new object for each process in the table. `startSeconds` is the start that they get; 0 means
    /// now. False if the table can't be read.
    bool scan(std::vector<ProcessPointer>& list, int32_t startSeconds);

    /// Scans for `getPollData`. False if the table can't be read; nothing changes then.
    bool poll(int32_t startSeconds);

    /// Fills `list` with the processes that ended and then those that started since the last poll that showed a change,
    /// each in the order of the ids, dated `span` before now.
    void getPollData(std::vector<ProcessPointer>& list, const TimeSpan& span);

    /// Forgets a poll whose data nobody took: by now it is old.
    void dropUntaken() { currentPoll_.clear(); }

    /// When the table can't be read: fills `list` with those of the last poll that have ended by what their own handles
    /// say, dated as by `getPollData`, and forgets them, which gives the handles back.
    void takeEnded(std::vector<ProcessPointer>& list, const TimeSpan& span);

    /// Whether there is a poll to compare the next one with.
    bool hasPrevious() const { return !previousPoll_.empty(); }

    /// Forgets all polls: the next one finds everything started.
    void forget();

    /// The same, and gives the logger back.
    void clear();

private:
    using Table = std::set<ProcessPointer>;

    static void reportEnded(const ProcessPointer& process, const TimeSpan& span, std::vector<ProcessPointer>& list);
    size_t collectEnded(std::vector<ProcessPointer>& list, const TimeSpan& span) const;
    size_t collectStarted(std::vector<ProcessPointer>& list, const TimeSpan& span) const;

    std::vector<uint32_t> ids_; // of the last scan; its room serves the next
    Logger logger_;
    Table previousPoll_; // the table at the last poll that differed from the one before it
    Table currentPoll_;  // filled by `poll`, emptied by `getPollData`
};

} // namespace Velmor
