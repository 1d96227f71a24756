#include "process/performance/PerformanceSample.h"

#include "platform/PerformanceLayout.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace Velmor {

namespace {
constexpr std::string_view signature{"P\0E\0R\0F\0", 8};
constexpr uint32_t thousandthsBits = 0x30000; // of a counter type; a value with these bits counts thousandths
constexpr uint32_t thousandths = 0x20000;
constexpr double thousand = 1000;
constexpr uint32_t halfBits = 32;
} // namespace

std::unique_ptr<PerformanceSample> PerformanceSample::parse(std::string bytes) {
    if (!bytes.starts_with(signature))
        return nullptr;
    std::unique_ptr<PerformanceSample> sample(new PerformanceSample(std::move(bytes)));
    return sample->readHeader() ? std::move(sample) : nullptr;
}

/// Copies a part out of the block, which aligns nothing; false if it doesn't lie before `end`.
template <typename Part>
bool PerformanceSample::get(size_t place, size_t end, Part& part) const {
    if (place > end || end - place < sizeof(part))
        return false;
    std::memcpy(&part, bytes_.data() + place, sizeof(part));
    return true;
}

bool PerformanceSample::readHeader() {
    PerfDataBlock header{};
    if (!get(0, bytes_.size(), header))
        return false;
    littleEndian_ = header.littleEndian;
    perfTime_ = header.perfTime;
    perfFreq_ = header.perfFreq;
    perfTime100ns_ = header.perfTime100nSec;
    size_t begin = header.headerLength;
    PerfObjectType object{};
    for (uint32_t i = 0; i < header.numObjectTypes && get(begin, bytes_.size(), object); ++i) {
        const size_t end = std::min<size_t>(begin + object.totalByteLength, bytes_.size());
        readObject(begin, end, objects_.emplace_back());
        if (object.totalByteLength < sizeof(object))
            break; // nobody knows where the next one would stand
        begin += object.totalByteLength;
    }
    return true;
}

void PerformanceSample::readObject(size_t begin, size_t end, SampleObject& object) const {
    PerfObjectType header{};
    if (!get(begin, end, header))
        return;
    object.perfTime = header.perfTime;
    object.perfFreq = header.perfFreq;
    object.hasInstances = header.numInstances > 0;
    size_t place = begin + header.headerLength;
    PerfCounterDefinition definition{};
    for (uint32_t i = 0; i < header.numCounters && get(place, end, definition); ++i) {
        object.counters.push_back({definition.counterNameTitleIndex, definition.counterType, definition.counterSize,
                                   definition.counterOffset});
        if (definition.byteLength < sizeof(definition))
            break;
        place += definition.byteLength;
    }
    const size_t behind = begin + header.definitionLength;
    if (object.hasInstances)
        readInstances(behind, end, header.numInstances, object);
    else if (behind < end)
        object.block = behind;
}

void PerformanceSample::readInstances(size_t begin, size_t end, int32_t count, SampleObject& object) const {
    const auto id = std::find_if(object.counters.begin(), object.counters.end(),
                                 [](const SampleCounter& counter) { return counter.title == PerfTitle::processId; });
    object.tellsProcessIds = id != object.counters.end();
    if (!object.tellsProcessIds)
        return;
    PerfInstanceDefinition instance{};
    PerfCounterBlock block{};
    for (int32_t i = 0; i < count && get(begin, end, instance); ++i) {
        const size_t place = begin + instance.byteLength;
        if (instance.byteLength < sizeof(instance) || !get(place, end, block))
            break;
        uint32_t pid = 0;
        if (get(place + id->offset, end, pid))
            object.instances.push_back({pid, place});
        if (block.byteLength < sizeof(block))
            break;
        begin = place + block.byteLength;
    }
    std::stable_sort(object.instances.begin(), object.instances.end(),
                     [](const auto& a, const auto& b) { return a.pid < b.pid; });
}

bool PerformanceSample::isInside(const SampleCounter& counter, size_t block) const {
    const size_t place = block + counter.offset;
    const size_t size = counter.size == 1 || counter.size == 2 || counter.size == 8 ? counter.size : 4;
    return place <= bytes_.size() && bytes_.size() - place >= size;
}

CounterLocation PerformanceSample::locate(const SampleObject& object, size_t block, uint32_t title) const {
    for (const SampleCounter& counter : object.counters)
        if (counter.title == title)
            return isInside(counter, block) ? CounterLocation{&object, &counter, block} : CounterLocation{};
    return {};
}

CounterLocation PerformanceSample::find(uint32_t pid, uint32_t title) const {
    for (const SampleObject& object : objects_) {
        if (!object.hasInstances) {
            const bool hasBlock = object.block != SampleObject::outside;
            if (const CounterLocation found = hasBlock ? locate(object, object.block, title) : CounterLocation{})
                return found;
            continue;
        }
        if (!object.tellsProcessIds)
            return {};
        auto instance = std::lower_bound(object.instances.begin(), object.instances.end(), pid,
                                         [](const auto& candidate, uint32_t id) { return candidate.pid < id; });
        for (; instance != object.instances.end() && instance->pid == pid; ++instance)
            if (const CounterLocation found = locate(object, instance->block, title))
                return found;
    }
    return {};
}

double PerformanceSample::readAt(const SampleCounter& counter, size_t block, bool littleEndian) const {
    const size_t place = block + counter.offset;
    const size_t end = bytes_.size();
    double value = 0;
    if (uint8_t byte = 0; counter.size == sizeof(byte)) {
        get(place, end, byte);
        value = byte;
    } else if (uint16_t word = 0; counter.size == sizeof(word)) {
        get(place, end, word);
        value = word;
    } else if (uint64_t large = 0; counter.size == sizeof(large)) {
        get(place, end, large);
        if (!littleEndian)
            large = (large << halfBits) | (large >> halfBits);
        value = static_cast<double>(static_cast<int64_t>(large));
    } else {
        uint32_t plain = 0;
        get(place, end, plain);
        value = plain;
    }
    return (counter.type & thousandthsBits) == thousandths ? value / thousand : value;
}

double PerformanceSample::read(const CounterLocation& location, bool littleEndian) const {
    return readAt(*location.counter, location.block, littleEndian);
}

double PerformanceSample::readBase(const CounterLocation& location, bool littleEndian) const {
    const std::vector<SampleCounter>& counters = location.object->counters;
    const SampleCounter* base = location.counter + 1;
    const bool isBase =
        base != counters.data() + counters.size() && (base->type & PerfType::subtypeBits) == PerfType::base;
    return isBase && isInside(*base, location.block) ? readAt(*base, location.block, littleEndian) : 0;
}

} // namespace Velmor
