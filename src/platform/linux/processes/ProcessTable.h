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

    /// The executable, read last by any handle.
    std::string lastExecutable();
    void noteExecutable(const std::string& path);

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
    std::mutex mutex_; // guards the path
    std::string executable_;
    std::atomic<int64_t> exitStatus_{unknownStatus};
};

/// The records that somebody holds, by process id.
class ProcessTable : public std::enable_shared_from_this<ProcessTable> {
public:
    /// The record of a process that still lives; null if nobody holds one.
    std::shared_ptr<ProcessRecord> findAlive(uint32_t pid);

    /// The record of a process that lives or has ended; null if nobody holds one.
    std::shared_ptr<ProcessRecord> find(uint32_t pid);

    /// Opens the process and reads what doesn't change of it. Null with errno: EACCES or ESRCH.
    std::shared_ptr<ProcessRecord> open(uint32_t pid, std::string& executable);

    /// Those that somebody holds although they have ended.
    std::vector<std::shared_ptr<ProcessRecord>> ended();

    /// Takes the place of a record that is gone out of the table.
    void forget(uint32_t pid);

private:
    std::mutex mutex_; // guards the map
    std::unordered_map<uint32_t, std::weak_ptr<ProcessRecord>> records_;
};

} // namespace Velmor
