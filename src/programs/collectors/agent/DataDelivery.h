#pragma once

#include "programs/collectors/agent/LogFile.h"
#include "programs/collectors/agent/ThreadRecord.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace Velmor {

/// Called just before a data file is ended, so that what belongs in this period gets written.
using BeforeDelivery = std::function<void()>;

/// A data file of the collector and its schedule.
struct LogFileEntry {
    std::string stem;
    SmartPointer<LogFile> file;
    TimeSpan interval;         // 0: the default interval
    DateTime lastDelivered{0}; // start of the present delivery period; 0 until the delivery thread has looked
    uint8_t forcedOnly = 0;    // 1: left out by a delivery without force
    BeforeDelivery beforeDelivery;
};

/// The data files by their data type word. Changed only while no worker runs.
using LogFileRegistry = std::map<std::string, LogFileEntry>;
LogFileRegistry& logFileRegistry();

/// Enters a new data file; a word that is there already stays as it is. `stem` is a path with its directory.
void registerLogFile(const std::string& stem, const std::string& key, const TimeSpan& interval, bool forcedOnly,
                     const BeforeDelivery& beforeDelivery);

/// While one lives, new data files are entered beside those in force, which can be reached all the time: whatever
/// becomes of a new configuration and its thread, the last slices have their files. Changed while no worker runs.
class NewLogFiles {
public:
    NewLogFiles();
    NewLogFiles(const NewLogFiles&) = delete;
    NewLogFiles& operator=(const NewLogFiles&) = delete;
    /// Forgets what was not put in force.
    ~NewLogFiles();

    /// Puts the new files in the place of the others, which are ended. One of the same stem stays the file that it was.
    void putInForce();

private:
    friend void registerLogFile(const std::string&, const std::string&, const TimeSpan&, bool, const BeforeDelivery&);
    static LogFileRegistry& entries();
    static inline bool isOpen = false;
};

/// The data file of a word; an empty pointer if there is none.
SmartPointer<LogFile> getLogFile(const std::string& key);

/// Ends the file of a word, which leaves it to the core service; a failure is reported. Always true.
bool releaseLogFile(const std::string& key);

/// Delivers all data files now; those with `forcedOnly` only with `force`. The schedule stays.
void deliverAll(bool force);

/// Decides when each data file is due, by the local clock. What the delivery thread does in a round, without sleeping.
class DeliverySchedule {
public:
    DeliverySchedule();

    /// Whether a tick of ten seconds has come; ticks that were missed count once.
    bool tick(const DateTime& now);

    /// Delivers what is due.
    static void deliverDue(const DateTime& now);

private:
    DateTime nextTick_;
};

/// The delivery thread. `record` is its `ThreadRecord`.
uint32_t dataDelivery(void* record);

} // namespace Velmor
