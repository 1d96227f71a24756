#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/processes/ExitRecords.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/types.h>

namespace Velmor {

class ProcessTable;

constexpr uint64_t tickTolerance = 3; // clock ticks between two readings of one start

/// Whether two readings in clock ticks since the system's start may be of one start.
constexpr bool isSameStart(uint64_t one, uint64_t other) {
    return one <= other + tickTolerance && other <= one + tickTolerance;
}

/// Whether `error` of a failed look means that the system had no room for it, which says nothing about the process.
bool isShortage(int error);

/// What the handles of one process share. Nothing in it changes but the path, which a program's exec may.
struct ProcessRecord {
    ProcessRecord(uint32_t processId, FileDescriptor pidfd, std::weak_ptr<ProcessTable> home)
        : pid(processId), descriptor(std::move(pidfd)), table_(std::move(home)) {}
    ProcessRecord(const ProcessRecord&) = delete;
    ProcessRecord& operator=(const ProcessRecord&) = delete;
    ~ProcessRecord();

    /// Whether any thread of it lives; one poll of the descriptor.
    bool isAlive() const;

    /// The executable as its link says now, or as it said last where the kernel has forgotten it. False with errno if
    /// the look is refused.
    bool readExecutable(std::string& path);
    std::string lastExecutable();
    void noteLink(const std::string& link);

    /// What the kernel's exit records told of its end; ignored if they mean another process of that number.
    void noteExit(const ExitRecord& exit);
    bool exitStatus(uint32_t& waitStatus) const;

    const uint32_t pid;
    const FileDescriptor descriptor; // of the process itself: its id can't be mistaken while this is held
    uint64_t startTime = 0;          // clock ticks since the system's start
    uint32_t generation = 0;         // of several that had this id and started in the same tick
    uid_t owner = 0;                 // effective

private:
    static constexpr int64_t unknownStatus = -1;

    std::weak_ptr<ProcessTable> table_;
    std::mutex mutex_;       // guards the next two
    std::string link_;       // the kernel's, read last
    std::string executable_; // what it means
    std::atomic<int64_t> exitStatus_{unknownStatus};
};

/// The records that somebody holds, by process id.
class ProcessTable : public std::enable_shared_from_this<ProcessTable> {
public:
    /// The record of a process that still lives; null if nobody holds one.
    std::shared_ptr<ProcessRecord> findAlive(uint32_t pid);

    /// The record of a process that lives or has ended; null if nobody holds one.
    std::shared_ptr<ProcessRecord> find(uint32_t pid);

    /// Opens the process and reads what doesn't change of it. Null with errno: EACCES, ESRCH, or a shortage.
    std::shared_ptr<ProcessRecord> open(uint32_t pid, std::string& executable);

    /// Holds a process that is known by other means, also one that has ended and wasn't waited for. Null if it has gone
    /// or there is no room.
    std::shared_ptr<ProcessRecord> hold(uint32_t pid, uint64_t startTicks, uid_t owner);

    /// Those that somebody holds although they have ended.
    std::vector<std::shared_ptr<ProcessRecord>> ended();

    /// Takes the place of a record that is gone out of the table.
    void forget(uint32_t pid);

private:
    std::shared_ptr<ProcessRecord> make(uint32_t pid);
    std::shared_ptr<ProcessRecord> enter(std::shared_ptr<ProcessRecord> record);

    std::mutex mutex_; // guards the map
    std::unordered_map<uint32_t, std::weak_ptr<ProcessRecord>> records_;
};

} // namespace Velmor
