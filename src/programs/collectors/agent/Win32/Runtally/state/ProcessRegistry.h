#pragma once

#include "process/Process.h"
#include "shared/library/common/system/Monopoly.h"

#include <atomic>
#include <cstdint>
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
    std::atomic<uint64_t> trackedCount{0};  // entries of processMap when its lock was last given back
    std::atomic<int32_t> monitoredCount{0}; // monitored entries of processMap; written under processMonopoly

    /// Forgets all processes. No worker runs.
    void clear();
};

/// The way into the registry, class-wide so that thread functions and callbacks reach it through `Runtally`.
class RegistryAccess {
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

    /// Frees what a lost thread held.
    static void freeLocksOf(uint32_t threadId);
};

} // namespace Velmor
