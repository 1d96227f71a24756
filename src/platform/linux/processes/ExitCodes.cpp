#include "platform/linux/processes/ExitCodes.h"

#include "platform/linux/processes/ProcFile.h"
#include "platform/linux/processes/TracedProcess.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace Velmor {

namespace {
/// The kernel's answer about a process descriptor, as far as it is asked for here.
struct DescriptorInfo {
    uint64_t mask;
    uint64_t cgroup;
    uint32_t ids[11];
    int32_t waitStatus;
};
constexpr uint64_t exitInfo = 1U << 3U;
constexpr unsigned long getInfoCall = _IOWR(0xFF, 11, DescriptorInfo);

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
bool askStatLine(uint32_t pid, uint64_t startTicks, uint32_t& waitStatus) {
    char target = 0;
    if (readlink(procPath(pid, "exe").c_str(), &target, 1) < 0 && errno != ENOENT)
        return false; // refused, while a zombie's own link is just gone
    ProcStat line;
    if (!readProcStat(pid, line) || !line.hasEnded() || (startTicks != 0 && !isSameStart(line.startTime, startTicks)))
        return false;
    waitStatus = line.waitStatus;
    return true;
}
} // namespace

void ExitCodes::listen() {
    std::call_once(listening_, [this] {
        if (!sources_.exitRecords || (sources_.descriptor && descriptorsTell()))
            return;
        exitRecords_ = ExitRecords::start([table = table_](uint32_t pid, const ExitRecord& exit) {
            if (const auto record = table->find(pid))
                record->noteExit(exit);
        });
    });
}

bool ExitCodes::askExitRecords(const ProcessRecord& record, uint32_t& waitStatus) {
    if (!exitRecords_)
        return false;
    exitRecords_->fetch();
    return record.exitStatus(waitStatus);
}

bool ExitCodes::ask(const ProcessRecord& record, uint32_t& code) {
    uint32_t waitStatus = 0;
    // Asked twice: between the two sources the parent may have waited for it.
    for (int i = 0; i < 2; ++i) {
        if ((sources_.descriptor && askDescriptor(record.descriptor.get(), waitStatus)) ||
            (sources_.statLine && askStatLine(record.pid, record.startTime, waitStatus)) ||
            askExitRecords(record, waitStatus)) {
            code = exitCodeOf(waitStatus);
            return true;
        }
    }
    return false;
}

bool ExitCodes::askUnheld(uint32_t pid, uint64_t startTicks, uint32_t& code) const {
    uint32_t waitStatus = 0;
    if (!sources_.statLine || !askStatLine(pid, startTicks, waitStatus))
        return false;
    code = exitCodeOf(waitStatus);
    return true;
}

/// Tried on a child of our own, since the kernel answers only for a process that has ended.
bool ExitCodes::descriptorsTell() {
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
