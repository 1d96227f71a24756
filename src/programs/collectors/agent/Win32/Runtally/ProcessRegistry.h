#pragma once

#include "process/Process.h"
#include "shared/library/common/system/Monopoly.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string_view>

namespace Velmor {

using ProcessMap = std::map<uint32_t, ProcessPointer>;

/// The collector's memory of what runs. Order of taking: `processMonopoly`, then the lock of another map, then that of
/// a data file; `ProgramState::deliveryMonopoly` comes before them all.
struct ProcessRegistry {
    ProcessMap processMap;                  // named and tracked; under processMonopoly, with every process in it
    ProcessMap endedProcessMap;             // ends that came before their starts; under endedMapMonopoly
    ProcessMap pendingInfoMap;              // started, but without a name yet; under pendingInfoMonopoly
    Monopoly processMonopoly;               // taken with a time limit, through enforceMonopoly
    Monopoly endedMapMonopoly;              // held for a map operation only
    Monopoly pendingInfoMonopoly;           // held for a map operation, or for a retry round
    std::atomic<int32_t> monitoredCount{0}; // monitored entries of processMap; written under processMonopoly

    /// Forgets all processes. No worker runs.
    void clear();
};

/// The operations on the registry, class-wide so that thread functions and callbacks reach them through `Runtally`.
class ProcessTracking {
public:
    /// Takes the registry's lock within about five seconds; a lock that nobody owns and that can't be entered is reset.
    /// `name` says who asks, `retriedBy` is the thread that tries again after such a reset, else 0. On true the caller
    /// holds it once more than before.
    static bool enforceMonopoly(std::string_view name, uint32_t retriedBy);
    static void relaxMonopoly(std::string_view name);

    /// Takes a tracked process out. False: the lock could not be had. True with a process: the lock is held until
    /// `checkIn`. True without: there is none of that id, and nothing is held.
    static bool checkOut(uint32_t pid, ProcessPointer& process);
    static void checkIn(ProcessPointer& process);
    /// The same for the whole map.
    static bool checkOutAll();
    static void checkInAll();

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

    /// Passes news of a process on by its state: started, ended, or in use.
    static void logProcess(const ProcessPointer& process);

    /// Ends now each tracked process of which `isGone` is true. False if the lock could not be had; nothing is ended
    /// then.
    static bool endGone(const std::function<bool(const ProcessPointer&)>& isGone);
    /// The same for all that has gone while no source watched. False also if the process table can't be read.
    static bool endUnseen();
    /// Names the tracked processes, and chooses those to be monitored, as a new configuration says. No worker runs.
    static void renewTracked();

    /// Clears up behind sources of an earlier configuration that aren't in force any more. No worker runs.
    static void leaveSources(bool eventsWereActive);
    /// Forgets all processes, for want of a source: nothing would tell of an end, and slices would go on for ever. They
    /// have had their last one. No worker runs.
    static void giveTrackedUp();

    /// Frees what a lost thread held.
    static void freeLocksOf(uint32_t threadId);
};

} // namespace Velmor
