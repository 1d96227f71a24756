#include "platform/linux/processes/ProcessTable.h"

#include "platform/linux/base/KernelClock.h"
#include "platform/linux/processes/ProcFile.h"
#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <cstdlib>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace Velmor {

namespace {
bool fail(int error) {
    errno = error;
    return false;
}

constexpr int64_t clockTolerance = 2; // seconds; both sides are rounded

int64_t secondsSlept() {
    return KernelClock::aheadOfMonotonic(CLOCK_BOOTTIME) / KernelClock::second;
}

/// The last descriptors stay free for looks at /proc: without one nobody sees which processes have ended, and none
/// would ever be given back.
constexpr rlim_t reserve = 32;

bool isOfReserve(const FileDescriptor& descriptor) {
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 && static_cast<rlim_t>(descriptor.get()) + reserve >= limit.rlim_cur;
}

/// Reads start time and owner. False with errno for what is no process that runs.
bool readConstants(ProcessRecord& record, std::string& executable) {
    std::string link;
    const bool hasExecutable = readExecutableLink(record.pid, link);
    const int linkError = errno;
    if (!hasExecutable && linkError != ENOENT) {
        if (!record.isAlive()) // the kernel refuses the link of what has just gone as well
            return fail(ESRCH);
        return fail(linkError == EPERM ? EACCES : linkError);
    }
    ProcStat line;
    if (!readLeaderStat(record.pid, line))
        return fail(isShortage(errno) ? errno : ESRCH);
    if (line.hasEnded() || line.isKernelThread())
        return fail(ESRCH);
    if (!hasExecutable)
        return fail(ESRCH); // it ends at this moment
    if (!readOwner(record.pid, record.owner))
        return fail(ESRCH);
    record.startTime = line.startTime;
    record.noteLink(link);
    executable = record.lastExecutable();
    // All of this was read by number: it is this process's only if that still lives.
    return record.isAlive() || fail(ESRCH);
}
} // namespace

bool isShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

ProcessRecord::~ProcessRecord() {
    if (const auto table = table_.lock())
        table->forget(pid);
}

bool ProcessRecord::isAlive() const {
    pollfd wanted{descriptor.get(), POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready == 0;
}

bool ProcessRecord::readExecutable(std::string& path) {
    std::string link;
    if (readExecutableLink(pid, link))
        noteLink(link);
    else if ((errno == EACCES || errno == EPERM) && isAlive())
        return false;
    path = lastExecutable();
    return true;
}

void ProcessRecord::noteLink(const std::string& link) {
    const ServiceLock lock(mutex_);
    if (link == link_)
        return;
    link_ = link;
    executable_ = executableOfLink(pid, link);
}

std::string ProcessRecord::lastExecutable() {
    const ServiceLock lock(mutex_);
    return executable_;
}

void ProcessRecord::noteExit(const ExitRecord& exit) {
    const int64_t later = exit.startTime - KernelClock::sinceEpoch(startTime) / KernelClock::second;
    // The record counts its time on a clock that stands still while the machine sleeps.
    if (later >= -clockTolerance && (later <= clockTolerance + secondsSlept() || exit.isLastOfMany))
        exitStatus_.store(exit.waitStatus);
}

bool ProcessRecord::exitStatus(uint32_t& waitStatus) const {
    const int64_t status = exitStatus_.load();
    if (status != unknownStatus)
        waitStatus = static_cast<uint32_t>(status);
    return status != unknownStatus;
}

std::shared_ptr<ProcessRecord> ProcessTable::find(uint32_t pid) {
    const ServiceLock lock(mutex_);
    const auto found = records_.find(pid);
    return found == records_.end() ? nullptr : found->second.lock();
}

std::shared_ptr<ProcessRecord> ProcessTable::findAlive(uint32_t pid) {
    auto record = find(pid);
    return record && record->isAlive() ? record : nullptr;
}

std::shared_ptr<ProcessRecord> ProcessTable::make(uint32_t pid) {
    FileDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (descriptor && isOfReserve(descriptor)) {
        errno = EMFILE;
        return nullptr;
    }
    if (descriptor)
        return std::make_shared<ProcessRecord>(pid, std::move(descriptor), weak_from_this());
    if (errno == EINVAL) // the number of a thread that leads no group
        errno = ESRCH;
    return nullptr;
}

std::shared_ptr<ProcessRecord> ProcessTable::enter(std::shared_ptr<ProcessRecord> record) {
    std::shared_ptr<ProcessRecord> other; // outlives the lock, which its end would take again
    const ServiceLock lock(mutex_);
    std::weak_ptr<ProcessRecord>& place = records_[record->pid];
    other = place.lock();
    if (other && other->isAlive()) // another thread was faster
        return other;
    // A number that is used again within one tick would give two processes the same start.
    if (other && other->startTime == record->startTime)
        record->generation = other->generation + 1;
    place = record;
    return record;
}

std::shared_ptr<ProcessRecord> ProcessTable::open(uint32_t pid, std::string& executable) {
    auto record = make(pid);
    if (!record || !readConstants(*record, executable))
        return nullptr;
    return enter(std::move(record));
}

std::shared_ptr<ProcessRecord> ProcessTable::hold(uint32_t pid, uint64_t startTicks, uid_t owner) {
    if (auto known = findAlive(pid))
        return known;
    auto record = make(pid);
    ProcStat line;
    if (!record || !readLeaderStat(pid, line) || (startTicks != 0 && !isSameStart(line.startTime, startTicks)))
        return nullptr;
    record->startTime = line.startTime;
    record->owner = owner;
    return enter(std::move(record));
}

std::vector<std::shared_ptr<ProcessRecord>> ProcessTable::ended() {
    std::vector<std::shared_ptr<ProcessRecord>> held;
    {
        const ServiceLock lock(mutex_);
        for (const auto& [pid, record] : records_)
            if (auto shared = record.lock())
                held.push_back(std::move(shared));
    }
    std::erase_if(held, [](const auto& record) { return record->isAlive(); });
    return held;
}

void ProcessTable::forget(uint32_t pid) {
    const ServiceLock lock(mutex_);
    if (const auto found = records_.find(pid); found != records_.end() && found->second.expired())
        records_.erase(found);
}

} // namespace Velmor
