#include "platform/linux/ProcessTable.h"

#include "platform/linux/Checkpoint.h"
#include "platform/linux/ProcFile.h"

#include <cerrno>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace Velmor {

namespace {
bool fail(int error) {
    errno = error;
    return false;
}

/// Reads start time and owner. False with errno for what is no process that runs.
bool readConstants(ProcessRecord& record, std::string& executable) {
    const bool hasExecutable = readExecutable(record.pid, executable);
    const int linkError = errno;
    if (!hasExecutable && linkError != ENOENT)
        return fail(linkError == EPERM ? EACCES : linkError);
    ProcStat line;
    if (!readProcStat(record.pid, line) || line.hasEnded() || line.isKernelThread())
        return fail(ESRCH);
    if (!hasExecutable)
        return fail(ESRCH); // it ends at this moment
    struct stat directory {};
    if (stat(procPath(record.pid, "").c_str(), &directory) != 0)
        return fail(ESRCH);
    record.startTime = line.startTime;
    record.owner = directory.st_uid; // of the directory itself it is the effective one, also if nothing may be dumped
    // All of this was read by number: it is this process's only if that still lives.
    return record.isAlive() || fail(ESRCH);
}
} // namespace

ProcessRecord::~ProcessRecord() {
    if (const auto table = table_.lock())
        table->forget(pid);
}

bool ProcessRecord::isAlive() const {
    pollfd wanted{descriptor.get(), POLLIN, 0};
    return poll(&wanted, 1, 0) == 0;
}

std::string ProcessRecord::lastExecutable() {
    const ServiceLock lock(mutex_);
    return executable_;
}

void ProcessRecord::noteExecutable(const std::string& path) {
    const ServiceLock lock(mutex_);
    if (executable_ != path)
        executable_ = path;
}

std::shared_ptr<ProcessRecord> ProcessTable::findAlive(uint32_t pid) {
    std::shared_ptr<ProcessRecord> record;
    {
        const ServiceLock lock(mutex_);
        if (const auto found = records_.find(pid); found != records_.end())
            record = found->second.lock();
    }
    return record && record->isAlive() ? record : nullptr;
}

std::shared_ptr<ProcessRecord> ProcessTable::open(uint32_t pid, std::string& executable) {
    FileDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!descriptor) {
        if (errno == EINVAL) // the number of a thread that leads no group
            errno = ESRCH;
        return nullptr;
    }
    auto record = std::make_shared<ProcessRecord>(pid, std::move(descriptor), weak_from_this());
    if (!readConstants(*record, executable))
        return nullptr;
    record->noteExecutable(executable);
    const ServiceLock lock(mutex_);
    records_[pid] = record;
    return record;
}

void ProcessTable::forget(uint32_t pid) {
    const ServiceLock lock(mutex_);
    if (const auto found = records_.find(pid); found != records_.end() && found->second.expired())
        records_.erase(found);
}

} // namespace Velmor
