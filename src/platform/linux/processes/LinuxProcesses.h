#pragma once

#include "platform/Processes.h"
#include "platform/linux/processes/OpenedProcess.h"
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
    using Sources = ExitCodes::Sources;

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
    bool isFileHere(const ProcessHandle& process) override;

    /// What the reader of process events has noted. A process in it is opened by its note, also when it has ended.
    TracedProcesses& traced() { return traced_; }

    /// Whether somebody holds a process that lives.
    bool holds(uint32_t pid) { return table_->findAlive(pid) != nullptr; }
    /// Processes that somebody holds although they have ended, each with its record.
    std::vector<TracedPointer> endedHeld();

    /// Gives a process that isn't followed any more a record, unless it has gone or there is no room.
    void release(TracedProcess& note);
    /// The code of a process that has ended, from whatever is left of it. `startTicks` as in `TracedProcess`.
    bool endedCode(uint32_t pid, uint64_t startTicks, uint32_t& code);

private:
    using KernelThreads = std::unordered_map<uint32_t, uint64_t>; // id to inode of its directory: told apart once

    std::optional<bool> isApplication(uint32_t pid, uint64_t inode, KernelThreads& seen);
    bool isKernelThread(uint32_t pid, uint64_t inode);
    TracedPointer findTraced(uint32_t pid);
    std::unique_ptr<OpenedProcess> openFollowed(const TracedPointer& note);
    std::unique_ptr<OpenedProcess> openHeld(uint32_t pid);

    std::shared_ptr<ProcessTable> table_; // outlived by no record
    ExitCodes codes_;
    TracedProcesses traced_;
    std::mutex mutex_; // guards the next
    KernelThreads kernelThreads_;
};

} // namespace Velmor
