#include "platform/linux/trace/SidebandRings.h"

#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/KernelClock.h"
#include "platform/linux/processes/ProcFile.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <linux/perf_event.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr size_t allRings = 16 * 1024 * 1024; // shared by the processors: some 40,000 executions in all
constexpr size_t largestRing = 8 * 1024 * 1024;
constexpr size_t leastRing = 1024 * 1024;
constexpr size_t smallRing = 512 * 1024; // what a user without further rights may lock for each processor
constexpr uint32_t executable = 4;       // PROT_EXEC
constexpr uint32_t lossMark = 0;         // in place of a process: something was lost before

/// What stands for a path that the kernel could not tell.
bool isUntold(std::string_view path) {
    return path == "//toolong" || path == "//enomem";
}

/// Places in the records, behind their heads of eight bytes.
constexpr size_t headSize = sizeof(perf_event_header);
constexpr size_t pathPlace = headSize + 64; // of a mapping
constexpr size_t protectionPlace = headSize + 56;
constexpr size_t devicePlace = headSize + 32; // major, then minor
constexpr size_t inodePlace = headSize + 40;

constexpr int64_t tidyInterval = KernelClock::second;
constexpr int64_t askedWithin = 10 * KernelClock::second; // a notice comes long before

template <typename Number>
Number numberAt(const char* bytes, size_t place) {
    Number number;
    std::memcpy(&number, bytes + place, sizeof(number));
    return number;
}

size_t processorCount() {
    return static_cast<size_t>(sysconf(_SC_NPROCESSORS_CONF));
}

size_t pageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

std::string onlineProcessors() {
    std::string text;
    readProcFile("/sys/devices/system/cpu/online", text);
    return text;
}

/// Whether a number is in a list as "0-3,5".
bool isListed(std::string_view list, int number) {
    const auto wanted = static_cast<uint64_t>(number);
    while (!list.empty()) {
        const uint64_t first = takeNumber(list);
        const uint64_t last = list.starts_with('-') ? takeNumber(list) : first;
        if (first <= wanted && wanted <= last)
            return true;
        list.remove_prefix(std::min<size_t>(list.size(), 1));
    }
    return false;
}

/// A power of two, so that many processors don't cost much memory, and a few have room.
size_t ringSize(size_t processors) {
    return std::clamp(std::bit_floor(allRings / std::max<size_t>(processors, 1)), leastRing, largestRing);
}
} // namespace

/// One processor's ring, mapped with its head page in front.
struct SidebandRings::Ring {
    Ring() = default;
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;
    ~Ring() {
        if (map)
            munmap(map, size + pageSize());
    }

    bool mapSize(size_t bytes) {
        void* mapped = mmap(nullptr, bytes + pageSize(), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
        if (mapped == MAP_FAILED)
            return false;
        map = static_cast<char*>(mapped);
        size = bytes;
        return true;
    }

    perf_event_mmap_page& head() const { return *reinterpret_cast<perf_event_mmap_page*>(map); }

    FileDescriptor descriptor;
    char* map = nullptr;
    size_t size = 0;
};

SidebandRings::SidebandRings() = default;
SidebandRings::~SidebandRings() = default;

std::unique_ptr<SidebandRings::Ring> SidebandRings::openRing(int processor, Records records) {
    perf_event_attr attributes{};
    attributes.size = sizeof(attributes);
    attributes.type = PERF_TYPE_SOFTWARE;
    attributes.config = PERF_COUNT_SW_DUMMY;
    attributes.sample_type = PERF_SAMPLE_TIME;
    attributes.sample_id_all = 1;
    attributes.exclude_kernel = 1;
    attributes.comm = 1;
    attributes.comm_exec = 1;
    attributes.mmap = 1;
    attributes.mmap2 = 1;
    attributes.task = records == Records::namesAndTasks ? 1 : 0;
    attributes.use_clockid = 1;
    attributes.clockid = CLOCK_MONOTONIC;
    attributes.watermark = 1;
    attributes.wakeup_watermark = largestRing; // nobody waits for it
    const RaisedCapability raised(Capability::perfmon);
    auto ring = std::make_unique<Ring>();
    ring->descriptor = FileDescriptor(
        static_cast<int>(syscall(SYS_perf_event_open, &attributes, -1, processor, -1, PERF_FLAG_FD_CLOEXEC)));
    if (!ring->descriptor ||
        !(ring->mapSize(ringSize(processorCount())) || ring->mapSize(leastRing) || ring->mapSize(smallRing)))
        return nullptr;
    return ring;
}

std::unique_ptr<SidebandRings> SidebandRings::start(Records records) {
    std::unique_ptr<SidebandRings> rings(new SidebandRings);
    rings->records_ = records;
    for (int i = 0; i < static_cast<int>(processorCount()); ++i) {
        auto ring = openRing(i, records);
        if (ring)
            rings->rings_[i] = std::move(ring);
        else if (errno != ENODEV) // a processor that is off
            return nullptr;
    }
    if (rings->rings_.empty())
        return nullptr;
    rings->online_ = onlineProcessors();
    return rings;
}

void SidebandRings::fetch() {
    for (const auto& [processor, ring] : rings_)
        drain(*ring);
    sortIn();
    const int64_t now = KernelClock::now(CLOCK_MONOTONIC);
    if (now - tidied_ < tidyInterval)
        return;
    tidied_ = now;
    forgetUnasked(now);
    followProcessors();
}

/// A ring dies with its processor, and one that comes later has none.
void SidebandRings::followProcessors() {
    std::string online = onlineProcessors();
    if (online == online_)
        return;
    online_ = std::move(online);
    for (int i = 0; i < static_cast<int>(processorCount()); ++i) {
        if (!isListed(online_, i))
            rings_.erase(i);
        else if (auto ring = rings_.contains(i) ? nullptr : openRing(i, records_))
            rings_[i] = std::move(ring);
    }
}

/// Their notices were lost, and they would name what comes later.
void SidebandRings::forgetUnasked(int64_t now) {
    for (auto place = executions_.begin(); place != executions_.end();) {
        auto& executions = place->second;
        while (!executions.empty() && executions.front().program.time < now - askedWithin)
            executions.pop_front();
        place = executions.empty() ? executions_.erase(place) : std::next(place);
    }
}

void SidebandRings::drain(Ring& ring) {
    const std::atomic_ref<decltype(ring.head().data_head)> end(ring.head().data_head);
    const std::atomic_ref<decltype(ring.head().data_tail)> begin(ring.head().data_tail);
    const char* data = ring.map + pageSize();
    const uint64_t last = end.load(std::memory_order_acquire);
    uint64_t place = begin.load(std::memory_order_relaxed);
    while (place < last) {
        const size_t offset = place % ring.size; // heads of eight bytes never lie across the end
        const auto size = numberAt<uint16_t>(data + offset, offsetof(perf_event_header, size));
        if (size < headSize || size > last - place)
            break;
        if (offset + size <= ring.size) {
            take(data + offset, size);
        } else {
            wrapped_.assign(data + offset, ring.size - offset);
            wrapped_.append(data, size - (ring.size - offset));
            take(wrapped_.data(), size);
        }
        place += size;
    }
    begin.store(last, std::memory_order_release);
}

void SidebandRings::take(const char* record, size_t size) {
    const auto head = numberAt<perf_event_header>(record, 0);
    if (size < headSize + 2 * sizeof(uint64_t))
        return;
    const auto time = numberAt<int64_t>(record, size - sizeof(int64_t));
    const auto pid = numberAt<uint32_t>(record, headSize);
    if (head.type != PERF_RECORD_LOST && !isProcessId(pid))
        return;
    using Kind = ProcessNotice::Kind;
    switch (head.type) {
    case PERF_RECORD_LOST:
        lost_ += numberAt<uint64_t>(record, headSize + sizeof(uint64_t));
        fresh_.push_back({time, lossMark, {}, {}});
        return;
    case PERF_RECORD_COMM:
        if (head.misc & PERF_RECORD_MISC_COMM_EXEC)
            fresh_.push_back({time, pid, {}, {}});
        return;
    case PERF_RECORD_MMAP2: {
        if (size <= pathPlace + sizeof(uint64_t) || record[pathPlace] != '/' ||
            !(numberAt<uint32_t>(record, protectionPlace) & executable))
            return;
        const std::string_view path(record + pathPlace, strnlen(record + pathPlace, size - pathPlace - sizeof(time)));
        if (path.starts_with("//") && !isUntold(path))
            return;
        const FileIdentity file(
            makedev(numberAt<uint32_t>(record, devicePlace), numberAt<uint32_t>(record, devicePlace + 4)),
            numberAt<uint64_t>(record, inodePlace));
        fresh_.push_back({time, pid, std::string(path), file});
        return;
    }
    case PERF_RECORD_FORK:
    case PERF_RECORD_EXIT: {
        if (size < headSize + 3 * sizeof(uint64_t))
            return;
        const auto parent = numberAt<uint32_t>(record, headSize + 4);
        const auto thread = numberAt<uint32_t>(record, headSize + 8);
        const auto at = numberAt<int64_t>(record, headSize + 16);
        if (head.type == PERF_RECORD_EXIT)
            notices_.push_back({Kind::exited, pid, thread, 0, at});
        else
            notices_.push_back({pid == thread ? Kind::forked : Kind::threadStarted, pid, parent, 0, at});
        return;
    }
    default:
        return;
    }
}

/// Of the mappings that follow the beginning of an execution the first is the executable.
void SidebandRings::sortIn() {
    std::stable_sort(fresh_.begin(), fresh_.end(), [](const Mapping& a, const Mapping& b) { return a.time < b.time; });
    for (Mapping& mapping : fresh_) {
        if (mapping.pid == lossMark) {
            forgetHalfTold();
            continue;
        }
        if (mapping.path.empty()) {
            executions_[mapping.pid].push_back({{mapping.time, {}, {}}, false});
            continue;
        }
        const auto found = executions_.find(mapping.pid);
        if (found == executions_.end() || found->second.empty() || found->second.back().isMapped)
            continue;
        Execution& execution = found->second.back();
        execution.isMapped = true;
        execution.program.file = mapping.file;
        if (!isUntold(mapping.path))
            execution.program.path = pathOfMapping(mapping.path, mapping.file.inode);
        if (records_ == Records::namesAndTasks)
            notices_.push_back({ProcessNotice::Kind::executed, mapping.pid, 0, 0, mapping.time});
    }
    fresh_.clear();
}

/// The mapping that comes next needn't be the first: the dynamic linker's would become the name.
void SidebandRings::forgetHalfTold() {
    for (auto& [pid, executions] : executions_)
        if (!executions.empty() && !executions.back().isMapped)
            executions.pop_back();
}

SidebandRings::Executed SidebandRings::takeExecuted(uint32_t pid, int64_t after, int64_t time) {
    Executed last;
    const auto found = executions_.find(pid);
    if (found == executions_.end())
        return last;
    while (!found->second.empty() && found->second.front().program.time <= time) {
        if (found->second.front().program.time >= after)
            last = std::move(found->second.front().program);
        found->second.pop_front();
    }
    if (found->second.empty())
        executions_.erase(found);
    return last;
}

void SidebandRings::takeNotices(int64_t until, std::vector<ProcessNotice>& notices) {
    std::stable_sort(notices_.begin(), notices_.end(),
                     [](const ProcessNotice& a, const ProcessNotice& b) { return a.time < b.time; });
    const auto end = std::partition_point(notices_.begin(), notices_.end(),
                                          [&](const ProcessNotice& notice) { return notice.time <= until; });
    notices.insert(notices.end(), notices_.begin(), end);
    notices_.erase(notices_.begin(), end);
}

} // namespace Velmor
