#pragma once

#include "process/Process.h"
#include "programs/collectors/agent/WaitingRecords.h"
#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/ReportLimit.h"

#include <cstdint>
#include <string>

namespace Velmor {

/// The diary of process events in the temporary directory: a text file for each local day, one line for each event. It
/// plays no part in the usage data. The only caller holds the registry's lock.
class ProcessEventLog {
public:
    /// Adds the line of an event. Files older than the configured days are deleted on the way. Lines that can't be
    /// written wait in memory for the next event, which is reported at once and then once a minute.
    void write(bool isStart, const Process& process);

    /// The lock that guards the writing, for the repair after a lost thread.
    Monopoly& lock() { return eventLogMonopoly_; }

private:
    void closeAndClean(const DateTime& now);
    bool isCleaningDue(const DateTime& now, int64_t directoryChanged) const;
    static void clean(const DateTime& now);
    bool openFile(const DateTime& now);
    bool writeWaiting(const DateTime& now);

    BasicFile file_; // of the present day, closed at first
    std::string fileName_;
    DateTime opened_{0};
    WaitingRecords waiting_;
    ReportLimit failureLimit_;

    // The last cleaning, and what it hung on: another one finds nothing before one of these changes.
    int32_t cleanedAt_ = -1;       // seconds; -1 before the first
    int64_t directoryChanged_ = 0; // seconds
    int32_t cleanedDays_ = 0;      // as configured
    std::string cleanedDirectory_;

    Monopoly eventLogMonopoly_;
};

/// Writes the line of a start or an end to the process event log, if there is to be one.
void logProcessEvent(bool isStart, const ProcessPointer& process);

} // namespace Velmor
