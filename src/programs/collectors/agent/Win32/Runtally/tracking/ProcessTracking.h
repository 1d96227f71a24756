#pragma once

#include "process/Process.h"
#include "programs/collectors/agent/Win32/Runtally/records/UsageRecordWriter.h"
#include "programs/collectors/agent/Win32/Runtally/state/ProcessRegistry.h"

#include <cstdint>
#include <functional>

namespace Velmor {

/// The life of a process in the registry, from the news of its start to its last record; class-wide so that thread
/// functions and callbacks reach it.
class ProcessTracking : public RegistryAccess, public UsageRecordWriter {
public:
    /// Passes news of a process on by its state: started, ended, or in use.
    static void logProcess(const ProcessPointer& process);

    /// Turns a start into a tracked entry; writes no record.
    static void logStartProcess(const ProcessPointer& process);
    /// Tries again to name the processes that had no name yet.
    static void retryPendingInfo();
    /// Has a process that waits for its name, and that has ended, tracked under what can be said of it, so that its end
    /// finds it. Nothing happens if none of that id waits.
    static void admitPending(uint32_t pid);
    /// Writes the last records of a process and gives it up. An end without a start waits for it.
    static void logEndProcess(const ProcessPointer& report);
    /// Writes a slice of a process that runs on.
    static void logProcessUsage(const ProcessPointer& report);
    /// Gives each tracked process a slice that ends now; the next one begins at the same second.
    static void dumpAll();

    /// Tracks a process. One whose end has been reported already gets its record at once, and isn't tracked. False if
    /// the lock could not be had.
    static bool addProcess(const ProcessPointer& process);
    /// False if the lock could not be had; true also if there was none of that id.
    static bool removeProcess(uint32_t pid);
    /// Gives a tracked process up, and tracks it again from now on. The caller has it checked out.
    static void trackAnew(const ProcessPointer& process);
    /// The end that waits for its start, or null.
    static ProcessPointer findStopEvent(uint32_t pid);
    /// The caller holds the lock of the map.
    static bool addProcessToEndedProcessMap(const ProcessPointer& process);
    static bool removeProcessFromEndedProcessMap(uint32_t pid);

    /// Ends now each tracked process of which `isGone` is true. False if the lock could not be had; nothing is ended
    /// then.
    static bool endGone(const std::function<bool(const ProcessPointer&)>& isGone);
    /// The same for all that has gone while no source watched. False also if the process table can't be read.
    static bool endUnseen();
    /// Names the tracked processes, and chooses those to be monitored, as a new configuration says. No worker runs.
    static void renewTracked();

    /// Forgets all processes, for want of a source: nothing would tell of an end, and slices would go on for ever. They
    /// have had their last one. No worker runs.
    static void giveTrackedUp();
};

} // namespace Velmor
