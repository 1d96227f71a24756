#pragma once

#include "platform/Processes.h"
#include "platform/linux/processes/ExitRecords.h"
#include "platform/linux/processes/ProcessTable.h"
#include "platform/linux/processes/TracedProcess.h"

#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace Velmor {

/// Processes are thread groups, looked at through pidfds and /proc. Handles of one process share what doesn't change,
/// so that a process that is still held costs little to open again.
class LinuxProcesses : public Processes {
public:
    /// The sources of exit codes, in the order in which they are asked.
    struct Sources {
        bool descriptor = true;  // the pidfd's information call
        bool statLine = true;    // of a process that nobody has waited for yet
        bool exitRecords = true; // the kernel's, where descriptors don't tell; of processes that were held at their end
    };

    LinuxProcesses() : LinuxProcesses(Sources{}) {}
    explicit LinuxProcesses(Sources sources);

    bool enumerate(std::vector<uint32_t>& ids) override;
    ProcessHandle open(uint32_t pid, uint32_t& error) override;
    bool exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) override;
    bool modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count, uint32_t& error) override;
    bool modulePath(const ProcessHandle& process, ModuleId module, std::string& path, uint32_t& error) override;
    bool moduleName(const ProcessHandle& process, ModuleId module, std::string& name, uint32_t& error) override;
    bool imageName(const ProcessHandle& process, std::string& path, uint32_t& error) override;
    TokenHandle openToken(const ProcessHandle& process, uint32_t& error) override;
    bool tokenUser(const TokenHandle& token, std::string& sid, uint32_t& error) override;
    bool startTime(const ProcessHandle& process, uint64_t& time) override;
    bool startSecond(const ProcessHandle& process, int32_t& second) override;

    /// What the reader of process events has noted. A process in it is opened by its note, also when it has ended.
    TracedProcesses& traced() { return traced_; }

    /// Whether somebody holds a process that lives.
    bool holds(uint32_t pid) { return table_->findAlive(pid) != nullptr; }
    /// Ids and executables of processes that somebody holds although they have ended.
    std::vector<std::pair<uint32_t, std::string>> endedHeld();

    /// Whether this kernel tells the exit code of an ended process through its descriptor.
    static bool descriptorsTellExitCodes();

private:
    std::optional<bool> isApplication(uint32_t pid, uint64_t inode);
    TracedPointer findTraced(uint32_t pid);
    void startExitRecords();
    bool askExitRecords(const ProcessRecord& record, uint32_t& waitStatus);

    Sources sources_;
    std::shared_ptr<ProcessTable> table_; // outlived by no record
    TracedProcesses traced_;
    std::once_flag exitRecordsStarted_;
    std::unique_ptr<ExitRecords> exitRecords_;             // null if nothing needs or nobody may have them
    std::mutex mutex_;                                     // guards the next
    std::unordered_map<uint32_t, uint64_t> kernelThreads_; // id to inode of its directory: told apart once
};

} // namespace Velmor
