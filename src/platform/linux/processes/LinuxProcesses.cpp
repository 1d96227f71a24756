#include "platform/linux/processes/LinuxProcesses.h"

#include "platform/Errors.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/KernelClock.h"
#include "platform/linux/base/SystemText.h"
#include "platform/linux/processes/ProcFile.h"
#include "platform/linux/threads/Checkpoint.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace Velmor {

namespace {
struct LinuxToken : NativeToken {
    uid_t owner = 0;
};

OpenedProcess& opened(const ProcessHandle& process) {
    return static_cast<OpenedProcess&>(*process);
}

bool isRefusal(int error) {
    return error == EACCES || error == EPERM;
}

/// The path in a line of a mappings file, where the kernel writes a line feed as its number; empty if the line is no
/// executable mapping of a file.
std::string mappedFile(std::string_view line) {
    constexpr std::string_view lineFeed = "\\012";
    const size_t rights = line.find(' ');
    if (rights == std::string_view::npos || line.size() < rights + 4 || line[rights + 3] != 'x')
        return {};
    const size_t gap = line.find(" /", rights);
    if (gap == std::string_view::npos || line.substr(gap + 1).starts_with("/memfd:"))
        return {};
    std::string path(line.substr(gap + 1));
    for (size_t place = 0; (place = path.find(lineFeed, place)) != std::string::npos;)
        path.replace(place, lineFeed.size(), "\n");
    const std::string_view front = line.substr(0, line.find_last_not_of(' ', gap) + 1);
    std::string_view inode = front.substr(front.rfind(' ') + 1);
    return pathOfMapping(path, takeNumber(inode));
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
    const std::string root = rootOf(pid);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = std::string_view(text).substr(begin, end - begin);
        begin = end + 1;
        std::string path = mappedFile(line);
        path.erase(0, rootLength(path, root));
        if (!path.empty() && path != executable && std::find(paths.begin(), paths.end(), path) == paths.end())
            paths.push_back(std::move(path));
    }
    return paths;
}
} // namespace

LinuxProcesses::LinuxProcesses(Sources sources) : table_(std::make_shared<ProcessTable>()), codes_(sources, table_) {}

bool LinuxProcesses::enumerate(std::vector<uint32_t>& ids) {
    checkpoint();
    ids.clear();
    const StopDeferral deferral;
    DirectoryReader proc("/proc");
    KernelThreads seen;
    bool isComplete = true; // a process that is left out would count as ended
    const bool isRead = forEachProcess(proc, [&](uint32_t pid, uint64_t inode) {
        const auto application = table_->findAlive(pid) ? std::optional(true) : isApplication(pid, inode, seen);
        isComplete = application.has_value();
        if (isComplete && *application)
            ids.push_back(pid);
        return isComplete;
    });
    if (isRead && isComplete) {
        const ServiceLock lock(mutex_);
        kernelThreads_ = std::move(seen);
    }
    return isRead && isComplete;
}

/// Whether an id that nobody holds is a process that runs, and no thread of the kernel's, which is noted in `seen`.
/// None if the system had no room for the look.
std::optional<bool> LinuxProcesses::isApplication(uint32_t pid, uint64_t inode, KernelThreads& seen) {
    if (isKernelThread(pid, inode)) {
        seen[pid] = inode;
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
    seen[pid] = inode;
    return false;
}

bool LinuxProcesses::isKernelThread(uint32_t pid, uint64_t inode) {
    const ServiceLock lock(mutex_);
    const auto known = kernelThreads_.find(pid);
    return known != kernelThreads_.end() && known->second == inode;
}

/// What the events have told of an id, unless its end will be taken by nobody: the id may be another's by then.
TracedPointer LinuxProcesses::findTraced(uint32_t pid) {
    TracedPointer note = traced_.find(pid);
    if (!note || note->state != TracedProcess::unwatched || note->isAlive())
        return note;
    traced_.remove(note);
    return nullptr;
}

ProcessHandle LinuxProcesses::open(uint32_t pid, uint32_t& error) {
    checkpoint();
    {
        const StopDeferral deferral;
        codes_.listen();
    }
    const TracedPointer note = findTraced(pid);
    auto process = note ? openFollowed(note) : openHeld(pid);
    if (!process)
        error = nativeError(errno);
    if (!process && error != NativeError::accessDenied && error != NativeError::tooManyOpenFiles &&
        error != NativeError::notEnoughMemory)
        error = NativeError::invalidParameter;
    if (process)
        error = NativeError::success;
    return process;
}

/// Named as the events told, or else by what its link says now. Null with errno if that is refused.
std::unique_ptr<OpenedProcess> LinuxProcesses::openFollowed(const TracedPointer& note) {
    auto process = std::make_unique<FollowedProcess>(note, codes_);
    process->executable = note->executable;
    if (note->executable.empty() && note->isAlive() && !readExecutable(note->pid, process->executable) &&
        isRefusal(errno))
        return nullptr;
    return process;
}

/// Null with errno.
std::unique_ptr<OpenedProcess> LinuxProcesses::openHeld(uint32_t pid) {
    std::string executable;
    auto record = table_->findAlive(pid);
    if (!record)
        record = table_->open(pid, executable);
    else if (!record->readExecutable(executable))
        return nullptr;
    else if (!record->isAlive()) { // what was read by number is this process's only if that still lives
        errno = ESRCH;
        return nullptr;
    }
    if (!record)
        return nullptr;
    auto process = std::make_unique<HeldProcess>(std::move(record), traced_, codes_);
    process->executable = std::move(executable);
    return process;
}

std::vector<TracedPointer> LinuxProcesses::endedHeld() {
    std::vector<TracedPointer> list;
    for (const auto& record : table_->ended()) {
        auto note = std::make_shared<TracedProcess>();
        note->pid = record->pid;
        note->executable = record->lastExecutable();
        note->owner = record->owner;
        note->startTicks = record->startTime;
        note->record = record;
        list.push_back(std::move(note));
    }
    return list;
}

void LinuxProcesses::release(TracedProcess& note) {
    if (!note.record)
        note.record = table_->hold(note.pid, note.startTicks, note.owner);
}

bool LinuxProcesses::endedCode(uint32_t pid, uint64_t startTicks, uint32_t& code) {
    const auto record = table_->find(pid);
    if (record && !record->isAlive() && (startTicks == 0 || isSameStart(record->startTime, startTicks)))
        return codes_.ask(*record, code);
    return codes_.askUnheld(pid, startTicks, code);
}

bool LinuxProcesses::exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) {
    checkpoint();
    const bool isKnown = opened(process).exitCode(code);
    error = isKnown ? NativeError::success : NativeError::invalidParameter;
    return isKnown;
}

bool LinuxProcesses::modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count,
                             uint32_t& error) {
    checkpoint();
    OpenedProcess& looked = opened(process);
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
    const OpenedProcess& looked = opened(process);
    if (module > looked.modules.size() || (module == 0 && looked.executable.empty())) {
        error = module == 0 ? NativeError::invalidParameter : NativeError::invalidHandle;
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
    token->owner = opened(process).owner();
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
    return opened(process).startTime(time);
}

bool LinuxProcesses::startSecond(const ProcessHandle& process, int32_t& second) {
    const uint64_t ticks = opened(process).startTicks();
    if (ticks != 0)
        second = static_cast<int32_t>(KernelClock::sinceEpoch(ticks) / KernelClock::second);
    return ticks != 0;
}

bool LinuxProcesses::isFileHere(const ProcessHandle& process) {
    return opened(process).isFileHere();
}

} // namespace Velmor
