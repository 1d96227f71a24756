#include "platform/linux/performance/ProcessFigures.h"

#include "platform/linux/base/KernelClock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>

namespace Velmor {

namespace {
constexpr size_t filesOfProcess = 3;
constexpr size_t textRoom = 4096; // enough but for the status of a user in hundreds of groups
constexpr uint64_t nanosecondsOfSecond = 1000000000;
constexpr uint64_t bytesOfKib = 1024;

/// The number behind `key`, searched from the front of `rest`, which then begins behind it; 0 if it isn't there.
uint64_t takeValue(std::string_view& rest, std::string_view key) {
    const size_t found = rest.find(key);
    if (found == std::string_view::npos)
        return 0;
    rest.remove_prefix(found + key.size());
    return takeNumber(rest);
}

/// The processor time of a whole thread group to the nanosecond, where the `stat` line counts ticks.
bool readProcessorClock(uint32_t pid, uint64_t& nanoseconds) {
    constexpr uint32_t groupClock = 2; // the kernel's number of the clock that counts the time on a processor
    const auto clock = static_cast<clockid_t>((~pid << 3U) | groupClock);
    timespec time{};
    if (clock_gettime(clock, &time) != 0)
        return false;
    nanoseconds = static_cast<uint64_t>(time.tv_sec) * nanosecondsOfSecond + static_cast<uint64_t>(time.tv_nsec);
    return true;
}

using EntryPath = std::array<char, 24>;
EntryPath entryPath(uint32_t pid, const char* name) {
    EntryPath path{};
    std::snprintf(path.data(), path.size(), "%u/%s", pid, name);
    return path;
}
} // namespace

ProcessFigureReader::ProcessFigureReader() : proc_("/proc") {
    text_.reserve(textRoom);
}

bool ProcessFigureReader::read() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    mostKept_ = limit.rlim_cur / 2 / filesOfProcess;
    ++round_;
    entries_.clear();
    const bool isRead = forEachProcess(proc_, [this](uint32_t pid, uint64_t inode) {
        entries_.push_back({pid, inode});
        return true;
    });
    if (!isRead)
        return false;
    size_t count = 0;
    for (const Entry& entry : entries_) {
        if (count == processes_.size())
            processes_.emplace_back();
        count += look(entry.pid, entry.inode, processes_[count]) ? 1 : 0;
    }
    processes_.resize(count);
    forgetGone();
    return true;
}

bool ProcessFigureReader::look(uint32_t pid, uint64_t inode, ProcessFigures& figures) {
    figures.pid = pid;
    if (const auto known = files_.find(pid); known != files_.end()) {
        Files& files = known->second;
        if (files.isKernelThread && files.inode == inode) {
            files.round = round_;
            return false;
        }
        if (files.stat && readFrom(files, figures)) {
            files.round = round_;
            return true;
        }
        kept_ -= files.stat ? 1 : 0;
        files_.erase(known); // it has gone; the number may be another's by now
    }
    Files files;
    files.inode = inode;
    files.round = round_;
    if (!openAtAnyPrice(pid, files))
        return false;
    const bool isApplication = readFrom(files, figures);
    if (files.isKernelThread) {
        files = Files{FileDescriptor(), FileDescriptor(), FileDescriptor(), inode, round_, true};
        files_.emplace(pid, std::move(files));
    } else if (isApplication && kept_ < mostKept_) {
        files_.emplace(pid, std::move(files));
        ++kept_;
    }
    return isApplication;
}

/// False with errno if the process has gone, or if there are no descriptors left.
bool ProcessFigureReader::open(uint32_t pid, Files& files) const {
    struct Target {
        const char* name;
        FileDescriptor& file;
    };
    for (const auto& [name, file] :
         {Target{"stat", files.stat}, Target{"status", files.status}, Target{"io", files.io}}) {
        file = FileDescriptor(openat(proc_.descriptor(), entryPath(pid, name).data(), O_RDONLY | O_CLOEXEC));
        if (!file && errno == EMFILE)
            return false;
    }
    return static_cast<bool>(files.stat);
}

/// The same, if need be with the descriptors that were kept for other processes.
bool ProcessFigureReader::openAtAnyPrice(uint32_t pid, Files& files) {
    if (open(pid, files))
        return true;
    if (errno != EMFILE || kept_ == 0)
        return false;
    files_.clear();
    kept_ = 0;
    return open(pid, files);
}

/// False for what is no process that runs.
bool ProcessFigureReader::readFrom(Files& files, ProcessFigures& figures) {
    const uint32_t pid = figures.pid;
    // By number: what the file of the process itself says afterwards vouches for it.
    const bool hasClock = readProcessorClock(pid, figures.processorTime);
    if (!takeStat(files, figures, files.isKernelThread))
        return false;
    if (!hasClock)
        figures.processorTime = figures.userTime + figures.privilegedTime;
    takeMemory(files, figures);
    takeInputOutput(files, figures);
    struct stat handles {};
    const bool counted = fstatat(proc_.descriptor(), entryPath(pid, "fd").data(), &handles, 0) == 0;
    figures.handles = counted ? static_cast<uint32_t>(handles.st_size) : 0;
    return true;
}

bool ProcessFigureReader::takeStat(const Files& files, ProcessFigures& figures, bool& isKernelThread) {
    if (!readText(files.stat) || !parseProcStat(text_, stat_))
        return false;
    isKernelThread = stat_.isKernelThread();
    figures.name = stat_.name;
    figures.threads = stat_.threads;
    figures.userTime = stat_.userTime * static_cast<uint64_t>(KernelClock::tick());
    figures.privilegedTime = stat_.privilegedTime * static_cast<uint64_t>(KernelClock::tick());
    figures.startTime = stat_.startTime;
    figures.virtualBytes = stat_.virtualBytes;
    return !isKernelThread && !stat_.hasEnded();
}

void ProcessFigureReader::takeMemory(const Files& files, ProcessFigures& figures) {
    figures.workingSet = 0;
    figures.privateBytes = 0;
    if (!files.status || !readText(files.status))
        return;
    std::string_view rest = text_;
    figures.workingSet = takeValue(rest, "\nVmRSS:") * bytesOfKib;
    figures.privateBytes = takeValue(rest, "\nRssAnon:") * bytesOfKib;
    figures.privateBytes += takeValue(rest, "\nVmSwap:") * bytesOfKib;
}

void ProcessFigureReader::takeInputOutput(const Files& files, ProcessFigures& figures) {
    figures.ioRead = 0;
    figures.ioWritten = 0;
    if (!files.io || !readText(files.io))
        return;
    std::string_view rest = text_;
    figures.ioRead = takeValue(rest, "rchar:");
    figures.ioWritten = takeValue(rest, "wchar:");
}

bool ProcessFigureReader::readText(const FileDescriptor& file) {
    ssize_t size = -1;
    for (size_t room = textRoom; size < 0 || static_cast<size_t>(size) == text_.size(); room *= 2) {
        text_.resize(room);
        do
            size = pread(file.get(), text_.data(), text_.size(), 0);
        while (size < 0 && errno == EINTR);
        if (size < 0)
            break;
    }
    text_.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return size > 0;
}

void ProcessFigureReader::forgetGone() {
    for (auto entry = files_.begin(); entry != files_.end();) {
        if (entry->second.round == round_) {
            ++entry;
            continue;
        }
        kept_ -= entry->second.stat ? 1 : 0;
        entry = files_.erase(entry);
    }
}

} // namespace Velmor
