#pragma once

#include <array>
#include <cstdint>

namespace Velmor {

// A block of raw performance data, as published by the system that the collector was thought out for. Behind the
// block's header stand the objects, each `totalByteLength` long: its header, its counter definitions up to
// `definitionLength`, and then either one counter block or, for each instance, its definition with its name and its
// counter block.

struct PerfDataBlock {
    std::array<uint16_t, 4> signature; // "PERF"
    uint32_t littleEndian;             // 1: values are in little-endian order
    uint32_t version;
    uint32_t revision;
    uint32_t totalByteLength;
    uint32_t headerLength; // where the first object stands
    uint32_t numObjectTypes;
    int32_t defaultObject;
    std::array<uint16_t, 8>
        systemTime;            // UTC: year, month, week day from Sunday, day, hour, minute, second, millisecond
    int64_t perfTime;          // in ticks of perfFreq
    int64_t perfFreq;          // ticks of a second
    int64_t perfTime100nSec;   // since 1601-01-01
    uint32_t systemNameLength; // bytes
    uint32_t systemNameOffset;
};
static_assert(sizeof(PerfDataBlock) == 88);

struct PerfObjectType {
    uint32_t totalByteLength; // where the next object stands
    uint32_t definitionLength;
    uint32_t headerLength; // where the first counter definition stands
    uint32_t objectNameTitleIndex;
    uint32_t objectNameTitle;
    uint32_t objectHelpTitleIndex;
    uint32_t objectHelpTitle;
    uint32_t detailLevel;
    uint32_t numCounters;
    int32_t defaultCounter;
    int32_t numInstances; // -1: the object has none
    uint32_t codePage;    // of the instances' names; 0: UTF-16
    int64_t perfTime;     // in ticks of perfFreq
    int64_t perfFreq;
};
static_assert(sizeof(PerfObjectType) == 64);

struct PerfCounterDefinition {
    uint32_t byteLength; // where the next definition stands
    uint32_t counterNameTitleIndex;
    uint32_t counterNameTitle;
    uint32_t counterHelpTitleIndex;
    uint32_t counterHelpTitle;
    int32_t defaultScale; // power of ten
    uint32_t detailLevel;
    uint32_t counterType;   // of PerfType
    uint32_t counterSize;   // bytes
    uint32_t counterOffset; // from the beginning of the counter block
};
static_assert(sizeof(PerfCounterDefinition) == 40);

struct PerfInstanceDefinition {
    uint32_t byteLength; // with the name; where the instance's counter block stands
    uint32_t parentObjectTitleIndex;
    uint32_t parentObjectInstance;
    int32_t uniqueId; // -1: the name tells instances apart
    uint32_t nameOffset;
    uint32_t nameLength; // bytes, with the zero
};
static_assert(sizeof(PerfInstanceDefinition) == 24);

struct PerfCounterBlock {
    uint32_t byteLength; // with the values; where the next instance stands
};
static_assert(sizeof(PerfCounterBlock) == 4);

/// The bits of a counter type, and the types that counters of processes have.
namespace PerfType {
constexpr uint32_t sizeLarge = 0x100;

constexpr uint32_t kindBits = 0xC00;
constexpr uint32_t number = 0x000;
constexpr uint32_t counter = 0x400;
constexpr uint32_t text = 0x800;
constexpr uint32_t zero = 0xC00;

constexpr uint32_t subtypeBits = 0xF0000; // of a counter
constexpr uint32_t rate = 0x10000;
constexpr uint32_t fraction = 0x20000;
constexpr uint32_t base = 0x30000;
constexpr uint32_t elapsed = 0x40000;
constexpr uint32_t queueLength = 0x50000;

constexpr uint32_t timerBits = 0x300000;
constexpr uint32_t timerTick = 0x000000;
constexpr uint32_t timer100ns = 0x100000;
constexpr uint32_t objectTimer = 0x200000;

constexpr uint32_t deltaCounter = 0x400000;
constexpr uint32_t deltaBase = 0x800000;
constexpr uint32_t inverse = 0x1000000;

constexpr uint32_t displayBits = 0xF0000000;
constexpr uint32_t perSecond = 0x10000000;
constexpr uint32_t percent = 0x20000000;
constexpr uint32_t seconds = 0x30000000;

constexpr uint32_t rawCount = 0x00010000;
constexpr uint32_t largeRawCount = 0x00010100;
constexpr uint32_t bulkCount = 0x10410500;    // bytes or operations per second
constexpr uint32_t timerOf100ns = 0x20510500; // percent of the time
constexpr uint32_t elapsedTime = 0x30240500;
} // namespace PerfType

/// Title indexes of the object of processes and its counters.
namespace PerfTitle {
constexpr uint32_t process = 230;
constexpr uint32_t processorTime = 6;
constexpr uint32_t userTime = 142;
constexpr uint32_t privilegedTime = 144;
constexpr uint32_t virtualBytes = 174;
constexpr uint32_t workingSet = 180;
constexpr uint32_t privateBytes = 186;
constexpr uint32_t threadCount = 680;
constexpr uint32_t elapsedTime = 684;
constexpr uint32_t processId = 784;
constexpr uint32_t handleCount = 952;
constexpr uint32_t ioReadBytes = 1420;
constexpr uint32_t ioWriteBytes = 1422;
constexpr uint32_t ioDataBytes = 1424;
} // namespace PerfTitle

} // namespace Velmor
