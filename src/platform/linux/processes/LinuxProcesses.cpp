#include "platform/linux/processes/LinuxProcesses.h"

#include "platform/Errors.h"
#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/SystemText.h"
#include "platform/linux/processes/ProcFile.h"
#include "platform/linux/threads/Checkpoint.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmor {

namespace {
struct LinuxProcess : NativeProcess {
    uint32_t pid() const { return traced ? traced->pid : record->pid; }
    bool isAlive() const { return traced ? traced->state < 0 && runs(*traced) : record->isAlive(); }

    static bool runs(const TracedProcess& process) {
        const int64_t state = process.state;
        pollfd wanted{process.descriptor.get(), POLLIN, 0};
        return state == TracedProcess::runs ||
               (state == TracedProcess::unwatched && process.descriptor && poll(&wanted, 1, 0) == 0);
    }

    std::shared_ptr<ProcessRecord> record; // or
    TracedPointer traced;
    std::string executable;           // when it was opened
    std::vector<std::string> modules; // behind the executable, as `modules` read them last
};

struct LinuxToken : NativeToken {
    uid_t owner = 0;
};

LinuxProcess& opened(const ProcessHandle& process) {
    return static_cast<LinuxProcess&>(*process);
}

/// The kernel's answer about a process descriptor, as far as it is asked for here.
struct DescriptorInfo {
    uint64_t mask;
    uint64_t cgroup;
    uint32_t ids[11];
    int32_t waitStatus;
};
constexpr uint64_t exitInfo = 1U << 3U;
constexpr unsigned long getInfoCall = _IOWR(0xFF, 11, DescriptorInfo);

constexpr unsigned generationBits = 8;

bool askDescriptor(int descriptor, uint32_t& waitStatus) {
    DescriptorInfo info{};
    info.mask = exitInfo;
    if (ioctl(descriptor, getInfoCall, &info) != 0 || !(info.mask & exitInfo))
        return false;
    waitStatus = static_cast<uint32_t>(info.waitStatus);
    return true;
}

/// The code of an ended process that its parent hasn't waited for. Others than its owner need a right to see it, and
/// would read a 0 that means nothing.
bool askStatLine(const ProcessRecord& record, uint32_t& waitStatus) {
    char target = 0;
    if (readlink(procPath(record.pid, "exe").c_str(), &target, 1) < 0 && errno != ENOENT)
        return false; // refused, while a zombie's own link is just gone
    ProcStat line;
    if (!readProcStat(record.pid, line) || !line.hasEnded() || line.startTime != record.startTime)
        return false;
    waitStatus = line.waitStatus;
    return true;
}

bool tracedExitCode(const TracedProcess& process, uint32_t& code, uint32_t& error) {
    const int64_t state = process.state;
    if (state >= 0 || LinuxProcess::runs(process)) {
        code = state >= 0 ? static_cast<uint32_t>(state) : stillActive;
        return true;
    }
    uint32_t waitStatus = 0;
    if (state == TracedProcess::unwatched && askDescriptor(process.descriptor.get(), waitStatus)) {
        code = exitCodeOf(waitStatus);
        return true;
    }
    error = NativeError::invalidParameter;
    return false;
}

bool isRefusal(int error) {
    return error == EACCES || error == EPERM;
}

/// Names a process as the events told, or else by what its link says now. False if that is refused.
bool nameTraced(LinuxProcess& process) {
    const TracedProcess& note = *process.traced;
    process.executable = note.executable;
    return !note.executable.empty() || !LinuxProcess::runs(note) || readExecutable(note.pid, process.executable) ||
           !isRefusal(errno);
}

/// File-backed executable mappings, each path once, without the executable itself.
std::vector<std::string> readMappings(uint32_t pid, const std::string& executable) {
    static thread_local std::string text; // large; new memory at each look would cost as much as reading
    std::vector<std::string> paths;
    if (!readProcFile(procPath(pid, "maps"), text))
        return paths;
    // The main thread's own are gone when it has ended before the others.
    if (const uint32_t other = text.empty() ? otherThread(pid) : 0; other != 0)
        readProcFile(procPath(pid, "task/") + std::to_string(other) + "/maps", text);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = std::string_view(text).substr(begin, end - begin);
        begin = end + 1;
        const size_t rights = line.find(' ');
        if (rights == std::string_view::npos || line.size() < rights + 4 || line[rights + 3] != 'x')
            continue;
        const size_t pathBegin = line.find(" /", rights);
        if (pathBegin == std::string_view::npos || line.substr(pathBegin + 1).starts_with("/memfd:"))
            continue;
        std::string path(withoutDeletedMark(line.substr(pathBegin + 1)));
        maskControlBytes(path);
        if (path != executable && std::find(paths.begin(), paths.end(), path) == paths.end())
            paths.push_back(std::move(path));
    }
    return paths;
}
} // namespace

LinuxProcesses::LinuxProcesses(Sources sources) : sources_(sources), table_(std::make_shared<ProcessTable>()) {}

bool LinuxProcesses::enumerate(std::vector<uint32_t>& ids) {
    checkpoint();
    ids.clear();
    const StopDeferral deferral;
    DirectoryReader proc("/proc");
    bool isComplete = true; // a process that is left out would count as ended
    const bool isRead = forEachProcess(proc, [&](uint32_t pid, uint64_t inode) {
        const auto application = table_->findAlive(pid) ? std::optional(true) : isApplication(pid, inode);
        isComplete = application.has_value();
        if (isComplete && *application)
            ids.push_back(pid);
        return isComplete;
    });
    return isRead && isComplete;
}

/// Whether an id that nobody holds is a process that runs, and no thread of the kernel's. None if the system had no
/// room for the look.
std::optional<bool> LinuxProcesses::isApplication(uint32_t pid, uint64_t inode) {
    {
        const ServiceLock lock(mutex_);
        if (const auto known = kernelThreads_.find(pid); known != kernelThreads_.end() && known->second == inode)
            return false;
    }
    char target = 0;
    if (readlink(procPath(pid, "exe").c_str(), &target, 1) >= 0)
        return true;
    ProcStat line;
    if (!readLeaderStat(pid, line))
        return isShortage(errno) ? std::nullopt : std::optional(false);
    if (!line.isKernelThread())
        return !line.hasEnded();
    const ServiceLock lock(mutex_);
    kernelThreads_[pid] = inode;
    return false;
}

void LinuxProcesses::startExitRecords() {
    if (sources_.exitRecords && !(sources_.descriptor && descriptorsTellExitCodes()))
        exitRecords_ = ExitRecords::start([table = table_](uint32_t pid, const ExitRecord& exit) {
            if (const auto record = table->find(pid))
                record->noteExit(exit);
        });
}

bool LinuxProcesses::askExitRecords(const ProcessRecord& record, uint32_t& waitStatus) {
    if (!exitRecords_)
        return false;
    exitRecords_->fetch();
    return record.exitStatus(waitStatus);
}

/// What the events have told of an id, unless its end will be taken by nobody: the id may be another's by then.
TracedPointer LinuxProcesses::findTraced(uint32_t pid) {
    TracedPointer note = traced_.find(pid);
    if (!note || note->state != TracedProcess::unwatched || LinuxProcess::runs(*note))
        return note;
    traced_.remove(note);
    return nullptr;
}

ProcessHandle LinuxProcesses::open(uint32_t pid, uint32_t& error) {
    checkpoint();
    {
        const StopDeferral deferral;
        std::call_once(exitRecordsStarted_, [this] { startExitRecords(); });
    }
    auto process = std::make_unique<LinuxProcess>();
    process->traced = findTraced(pid);
    if (process->traced) {
        if (!nameTraced(*process)) {
            error = NativeError::accessDenied;
            return nullptr;
        }
        error = NativeError::success;
        return process;
    }
    process->record = table_->findAlive(pid);
    if (process->record) {
        // The kernel forgets the link when the main thread has ended; then what was read before still holds.
        if (readExecutable(pid, process->executable)) {
            process->record->noteExecutable(process->executable);
        } else if (isRefusal(errno) && process->record->isAlive()) {
            error = NativeError::accessDenied;
            return nullptr;
        } else {
            process->executable = process->record->lastExecutable();
        }
        // Read by number: it is this process's only if that still lives.
        if (!process->record->isAlive()) {
            error = NativeError::invalidParameter;
            return nullptr;
        }
    } else {
        process->record = table_->open(pid, process->executable);
    }
    if (!process->record) {
        error = nativeError(errno);
        if (error != NativeError::accessDenied && error != NativeError::tooManyOpenFiles &&
            error != NativeError::notEnoughMemory)
            error = NativeError::invalidParameter;
        return nullptr;
    }
    error = NativeError::success;
    return process;
}

std::vector<std::pair<uint32_t, std::string>> LinuxProcesses::endedHeld() {
    std::vector<std::pair<uint32_t, std::string>> list;
    for (const auto& record : table_->ended())
        list.emplace_back(record->pid, record->lastExecutable());
    return list;
}

bool LinuxProcesses::exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) {
    checkpoint();
    error = NativeError::success;
    if (const TracedPointer& traced = opened(process).traced)
        return tracedExitCode(*traced, code, error);
    const ProcessRecord& record = *opened(process).record;
    // A program that was replaced by another in the same process has ended, though the process lives.
    if (const TracedPointer note = traced_.find(record.pid);
        note && isSameStart(note->startTicks, record.startTime) && note->state >= 0) {
        code = static_cast<uint32_t>(note->state);
        return true;
    }
    if (record.isAlive()) {
        code = stillActive;
        return true;
    }
    uint32_t waitStatus = 0;
    // Asked twice: between the two sources the parent may have waited for it.
    for (int i = 0; i < 2; ++i) {
        if ((sources_.descriptor && askDescriptor(record.descriptor.get(), waitStatus)) ||
            (sources_.statLine && askStatLine(record, waitStatus)) || askExitRecords(record, waitStatus)) {
            code = exitCodeOf(waitStatus);
            return true;
        }
    }
    error = NativeError::invalidParameter;
    return false;
}

bool LinuxProcesses::modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count,
                             uint32_t& error) {
    checkpoint();
    LinuxProcess& looked = opened(process);
    if (looked.executable.empty()) {
        error = NativeError::invalidParameter;
        return false;
    }
    error = NativeError::success;
    looked.modules.clear();
    if (modules.size() > 1)
        looked.modules = readMappings(looked.pid(), looked.executable);
    if (!looked.modules.empty() && !looked.isAlive()) {
        error = NativeError::invalidParameter;
        return false;
    }
    count = looked.modules.size() + 1;
    for (size_t i = 0; i < std::min(count, modules.size()); ++i)
        modules[i] = i;
    return true;
}

bool LinuxProcesses::modulePath(const ProcessHandle& process, ModuleId module, std::string& path, uint32_t& error) {
    const LinuxProcess& looked = opened(process);
    if (module > looked.modules.size()) {
        error = NativeError::invalidHandle;
        return false;
    }
    path = module == 0 ? looked.executable : looked.modules[module - 1];
    error = NativeError::success;
    return true;
}

bool LinuxProcesses::moduleName(const ProcessHandle& process, ModuleId module, std::string& name, uint32_t& error) {
    if (!modulePath(process, module, name, error))
        return false;
    name.erase(0, name.rfind('/') + 1);
    return true;
}

bool LinuxProcesses::imageName(const ProcessHandle& process, std::string& path, uint32_t& error) {
    return modulePath(process, 0, path, error);
}

TokenHandle LinuxProcesses::openToken(const ProcessHandle& process, uint32_t& error) {
    auto token = std::make_unique<LinuxToken>();
    const LinuxProcess& looked = opened(process);
    token->owner = looked.traced ? looked.traced->owner : looked.record->owner;
    if (token->owner == TracedProcess::unknownOwner) {
        error = NativeError::invalidParameter;
        return nullptr;
    }
    error = NativeError::success;
    return token;
}

bool LinuxProcesses::tokenUser(const TokenHandle& token, std::string& sid, uint32_t& error) {
    sid = "S-1-22-1-" + std::to_string(static_cast<const LinuxToken&>(*token).owner);
    error = NativeError::success;
    return true;
}

bool LinuxProcesses::startTime(const ProcessHandle& process, uint64_t& time) {
    const LinuxProcess& looked = opened(process);
    if (!looked.record) // the events' clock doesn't tell the tick
        return false;
    time = (looked.record->startTime << generationBits) + looked.record->generation;
    return true;
}

bool LinuxProcesses::startSecond(const ProcessHandle& process, int32_t& second) {
    const LinuxProcess& looked = opened(process);
    const uint64_t ticks = looked.record ? looked.record->startTime : looked.traced->startTicks;
    if (ticks == 0)
        return false;
    timespec sinceBoot{};
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    clock_gettime(CLOCK_REALTIME, &now);
    const auto age = static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) / 1e9 -
                     static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    second = static_cast<int32_t>(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 - age);
    return true;
}

/// Tried on a child of our own, since the kernel answers only for a process that has ended.
bool LinuxProcesses::descriptorsTellExitCodes() {
    static const bool answer = [] {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        const FileDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
        waitpid(child, nullptr, 0);
        uint32_t waitStatus = 0;
        return descriptor && askDescriptor(descriptor.get(), waitStatus);
    }();
    return answer;
}

} // namespace Velmor
