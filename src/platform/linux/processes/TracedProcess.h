#pragma once

#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/processes/ProcessTable.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include <sys/types.h>

namespace Velmor {

/// What the reader of process events has noted of one program run by one process. It outlives the process for as long
/// as somebody holds it.
struct TracedProcess {
    static constexpr int64_t runs = -1;
    static constexpr int64_t endedUnknown = -2; // it has ended, and the events didn't tell its code
    static constexpr int64_t unwatched = -3;    // the events are not followed any more; `record` tells of it
    static constexpr auto unknownOwner = static_cast<uid_t>(-1);

    uint32_t pid = 0;
    uint32_t parentPid = 0;
    std::string executable;                // empty if it was gone before it could be learnt
    uid_t owner = unknownOwner;            // effective
    uint64_t startTicks = 0;               // of the process, clock ticks since the system's start; 0 unknown
    std::optional<FileIdentity> file;      // of the executable, if the events told it
    std::atomic<int64_t> state{runs};      // or the exit code
    std::shared_ptr<ProcessRecord> record; // written before the state becomes `unwatched`, and not again; null: gone

    /// Whether its own record tells of it, in place of the events.
    bool isReleased() const { return state == unwatched && record; }
    bool isAlive() const { return state == runs || (isReleased() && record->isAlive()); }
};
using TracedPointer = std::shared_ptr<TracedProcess>;

/// The processes that the reader of the events has been told of, by id, at the point of the stream that has been handed
/// over: a process stays until its end has been taken.
class TracedProcesses {
public:
    /// Null if none of that id is known.
    TracedPointer find(uint32_t pid);
    void enter(const TracedPointer& process);
    /// Removes this very process.
    void remove(const TracedPointer& process);
    void forEach(const std::function<void(const TracedPointer&)>& visit);

private:
    std::mutex mutex_;
    std::unordered_map<uint32_t, TracedPointer> processes_;
};

} // namespace Velmor
