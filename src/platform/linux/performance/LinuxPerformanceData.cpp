#include "platform/linux/performance/LinuxPerformanceData.h"

#include "platform/Errors.h"
#include "platform/PerformanceLayout.h"
#include "platform/linux/base/Errno.h"
#include "platform/linux/base/KernelClock.h"
#include "platform/linux/threads/Checkpoint.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr int64_t unitsOfSecond = 10000000; // of 100 ns
constexpr int64_t keepTime = unitsOfSecond; // how long a sample waits for a larger buffer
constexpr size_t alignment = 8;
constexpr uint32_t novice = 100; // levels of detail
constexpr uint32_t advanced = 200;

/// The values of one instance.
struct ProcessCounters {
    PerfCounterBlock header;
    uint32_t processId;
    uint32_t threads;
    uint32_t handles;
    uint64_t processorTime; // 100 ns, like the next two
    uint64_t userTime;
    uint64_t privilegedTime;
    uint64_t virtualBytes;
    uint64_t workingSet;
    uint64_t privateBytes;
    uint64_t startTime; // 100 ns since 1601
    uint64_t ioRead;
    uint64_t ioWritten;
    uint64_t ioData;
};

struct CounterRow {
    uint32_t title;
    const char* name;
    uint32_t type;
    uint32_t detail;
    size_t offset;
};

constexpr std::array counterTable{
    CounterRow{PerfTitle::processorTime, "% Processor Time", PerfType::timerOf100ns, novice,
               offsetof(ProcessCounters, processorTime)},
    CounterRow{PerfTitle::userTime, "% User Time", PerfType::timerOf100ns, advanced,
               offsetof(ProcessCounters, userTime)},
    CounterRow{PerfTitle::privilegedTime, "% Privileged Time", PerfType::timerOf100ns, advanced,
               offsetof(ProcessCounters, privilegedTime)},
    CounterRow{PerfTitle::virtualBytes, "Virtual Bytes", PerfType::largeRawCount, advanced,
               offsetof(ProcessCounters, virtualBytes)},
    CounterRow{PerfTitle::workingSet, "Working Set", PerfType::largeRawCount, novice,
               offsetof(ProcessCounters, workingSet)},
    CounterRow{PerfTitle::privateBytes, "Private Bytes", PerfType::largeRawCount, advanced,
               offsetof(ProcessCounters, privateBytes)},
    CounterRow{PerfTitle::threadCount, "Thread Count", PerfType::rawCount, advanced,
               offsetof(ProcessCounters, threads)},
    CounterRow{PerfTitle::elapsedTime, "Elapsed Time", PerfType::elapsedTime, advanced,
               offsetof(ProcessCounters, startTime)},
    CounterRow{PerfTitle::processId, "ID Process", PerfType::rawCount, novice, offsetof(ProcessCounters, processId)},
    CounterRow{PerfTitle::handleCount, "Handle Count", PerfType::rawCount, advanced,
               offsetof(ProcessCounters, handles)},
    CounterRow{PerfTitle::ioReadBytes, "IO Read Bytes/sec", PerfType::bulkCount, novice,
               offsetof(ProcessCounters, ioRead)},
    CounterRow{PerfTitle::ioWriteBytes, "IO Write Bytes/sec", PerfType::bulkCount, novice,
               offsetof(ProcessCounters, ioWritten)},
    CounterRow{PerfTitle::ioDataBytes, "IO Data Bytes/sec", PerfType::bulkCount, novice,
               offsetof(ProcessCounters, ioData)},
};

int64_t readClock(clockid_t clock) {
    return KernelClock::now(clock) / KernelClock::unit;
}

template <typename Part>
void append(std::string& block, const Part& part) {
    block.append(reinterpret_cast<const char*>(&part), sizeof(part));
}

void align(std::string& block) {
    block.resize((block.size() + alignment - 1) / alignment * alignment);
}

/// Widens a text to 16 bits for each byte, with a zero at its end.
void appendWide(std::string& block, const std::string& text) {
    for (const char c : text) {
        block += c;
        block += '\0';
    }
    block.append(2, '\0');
}

template <typename Part>
void overwrite(std::string& block, size_t place, const Part& part) {
    std::memcpy(block.data() + place, &part, sizeof(part));
}

std::array<uint16_t, 8> systemTimeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    const auto part = [](long number) { return static_cast<uint16_t>(number); };
    return {part(utc.tm_year + 1900), part(utc.tm_mon + 1), part(utc.tm_wday), part(utc.tm_mday),
            part(utc.tm_hour),        part(utc.tm_min),     part(utc.tm_sec),  part(now.tv_nsec / 1000000)};
}

std::string computerName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

int64_t ticksToUnits(uint64_t ticks) {
    return static_cast<int64_t>(ticks) * (KernelClock::tick() / KernelClock::unit);
}
} // namespace

LinuxPerformanceData::LinuxPerformanceData()
    : bootDate_(KernelClock::epoch + readClock(CLOCK_REALTIME) - readClock(CLOCK_BOOTTIME)) {}

bool LinuxPerformanceData::counterNames(uint32_t& last, std::string& names, uint32_t& error) {
    const auto add = [&](uint32_t title, const char* name) {
        names.append(std::to_string(title)).push_back('\0');
        names.append(name).push_back('\0');
    };
    names.clear();
    last = PerfTitle::process;
    add(PerfTitle::process, "Process");
    for (const CounterRow& row : counterTable) {
        add(row.title, row.name);
        last = std::max(last, row.title);
    }
    names.push_back('\0');
    error = NativeError::success;
    return true;
}

bool LinuxPerformanceData::sample(char* buffer, size_t& size, uint32_t& error) {
    checkpoint();
    const ServiceLock lock(mutex_);
    if (!hasFreshBlock() && !takeBlock()) {
        error = nativeError(errno);
        return false;
    }
    if (size < block_.size()) {
        error = NativeError::moreData;
        return false;
    }
    std::memcpy(buffer, block_.data(), block_.size());
    size = block_.size();
    block_.clear();
    error = NativeError::success;
    return true;
}

int64_t LinuxPerformanceData::steadyTime() const {
    return readClock(CLOCK_BOOTTIME);
}

bool LinuxPerformanceData::hasFreshBlock() const {
    return !block_.empty() && steadyTime() - blockTime_ < keepTime;
}

bool LinuxPerformanceData::takeBlock() {
    block_.clear();
    blockTime_ = steadyTime();
    if (!reader_.read())
        return false;
    appendHeader();
    const size_t object = block_.size();
    appendObject();
    overwrite(block_, object + offsetof(PerfObjectType, totalByteLength),
              static_cast<uint32_t>(block_.size() - object));
    overwrite(block_, offsetof(PerfDataBlock, totalByteLength), static_cast<uint32_t>(block_.size()));
    return true;
}

void LinuxPerformanceData::appendHeader() {
    PerfDataBlock header{};
    header.signature = {'P', 'E', 'R', 'F'};
    header.littleEndian = 1;
    header.version = 1;
    header.revision = 1;
    header.numObjectTypes = 1;
    header.defaultObject = PerfTitle::process;
    header.systemTime = systemTimeNow();
    header.perfTime = blockTime_;
    header.perfFreq = unitsOfSecond;
    header.perfTime100nSec = bootDate_ + blockTime_;
    header.systemNameOffset = sizeof(header);
    append(block_, header);
    appendWide(block_, computerName());
    overwrite(block_, offsetof(PerfDataBlock, systemNameLength), static_cast<uint32_t>(block_.size() - sizeof(header)));
    align(block_);
    overwrite(block_, offsetof(PerfDataBlock, headerLength), static_cast<uint32_t>(block_.size()));
}

void LinuxPerformanceData::appendObject() {
    PerfObjectType object{};
    object.headerLength = sizeof(object);
    object.definitionLength = sizeof(object) + counterTable.size() * sizeof(PerfCounterDefinition);
    object.objectNameTitleIndex = PerfTitle::process;
    object.objectHelpTitleIndex = PerfTitle::process + 1;
    object.detailLevel = novice;
    object.numCounters = counterTable.size();
    object.numInstances = static_cast<int32_t>(reader_.processes().size());
    object.perfTime = bootDate_ + blockTime_;
    object.perfFreq = unitsOfSecond;
    append(block_, object);
    for (const CounterRow& row : counterTable) {
        PerfCounterDefinition definition{};
        definition.byteLength = sizeof(definition);
        definition.counterNameTitleIndex = row.title;
        definition.counterHelpTitleIndex = row.title + 1;
        definition.detailLevel = row.detail;
        definition.counterType = row.type;
        definition.counterSize = row.type & PerfType::sizeLarge ? sizeof(uint64_t) : sizeof(uint32_t);
        definition.counterOffset = static_cast<uint32_t>(row.offset);
        append(block_, definition);
    }
    for (const ProcessFigures& figures : reader_.processes())
        appendInstance(figures);
}

void LinuxPerformanceData::appendInstance(const ProcessFigures& figures) {
    const size_t begin = block_.size();
    PerfInstanceDefinition instance{};
    instance.uniqueId = -1;
    instance.nameOffset = sizeof(instance);
    instance.nameLength = static_cast<uint32_t>(2 * (figures.name.size() + 1));
    append(block_, instance);
    appendWide(block_, figures.name);
    align(block_);
    overwrite(block_, begin + offsetof(PerfInstanceDefinition, byteLength),
              static_cast<uint32_t>(block_.size() - begin));
    ProcessCounters counters{};
    counters.header.byteLength = sizeof(counters);
    counters.processId = figures.pid;
    counters.threads = figures.threads;
    counters.handles = figures.handles;
    counters.processorTime = figures.processorTime / KernelClock::unit;
    counters.userTime = figures.userTime / KernelClock::unit;
    counters.privilegedTime = figures.privilegedTime / KernelClock::unit;
    counters.virtualBytes = figures.virtualBytes;
    counters.workingSet = figures.workingSet;
    counters.privateBytes = figures.privateBytes;
    counters.startTime = static_cast<uint64_t>(bootDate_ + ticksToUnits(figures.startTime));
    counters.ioRead = figures.ioRead;
    counters.ioWritten = figures.ioWritten;
    counters.ioData = figures.ioRead + figures.ioWritten;
    append(block_, counters);
}

} // namespace Velmor
