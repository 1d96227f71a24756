// Blocks of raw performance data that may be anything, and the table of counter names. The index of a sample has to
// find what a plain walk along its lengths finds.

#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/PerformanceData.h"
#include "platform/PerformanceLayout.h"
#include "platform/Platform.h"
#include "process/performance/OscQuery.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace Velmor {

namespace {
/// Stands still; sleeping costs nothing.
class StillClock : public Clock {
public:
    int32_t now() override { return 0; }
    uint32_t ticks() override { return 0; }
    void sleep(uint32_t) override {}
    CalendarFields utc(int32_t) override { return {}; }
    CalendarFields local(int32_t) override { return {}; }
};

/// Gives two blocks in turn, and a table of names.
class FuzzedData : public PerformanceData {
public:
    bool counterNames(uint32_t& last, std::string& text, uint32_t&) override {
        last = static_cast<uint32_t>(names.size()) * 3;
        text = names;
        return true;
    }
    bool sample(char* buffer, size_t& size, uint32_t& error) override {
        const std::string& block = blocks[count % 2];
        error = NativeError::moreData;
        if (block.size() > size)
            return false;
        ++count;
        std::memcpy(buffer, block.data(), block.size());
        size = block.size();
        return true;
    }

    std::string names;
    std::string blocks[2];
    size_t count = 0;
};

template <typename Part>
std::optional<Part> partAt(const std::string& block, uint64_t place, uint64_t end) {
    if (place + sizeof(Part) > std::min<uint64_t>(end, block.size()))
        return std::nullopt;
    Part part;
    std::memcpy(&part, block.data() + place, sizeof(part));
    return part;
}

/// The definition of a counter in the object at `begin`.
std::optional<PerfCounterDefinition> definitionOf(const std::string& block, uint64_t begin, uint64_t end,
                                                  uint32_t title) {
    const auto object = partAt<PerfObjectType>(block, begin, end);
    uint64_t place = begin + object->headerLength;
    for (uint32_t i = 0; i < object->numCounters; ++i) {
        const auto definition = partAt<PerfCounterDefinition>(block, place, end);
        if (!definition || definition->counterNameTitleIndex == title)
            return definition;
        if (definition->byteLength < sizeof(PerfCounterDefinition))
            return std::nullopt;
        place += definition->byteLength;
    }
    return std::nullopt;
}

uint64_t valueAt(const std::string& block, uint64_t counterBlock, const std::optional<PerfCounterDefinition>& counter) {
    if (!counter)
        return 0;
    const uint32_t size = counter->counterSize;
    const uint64_t place = counterBlock + counter->counterOffset;
    return place + (size == 1 || size == 2 || size == 8 ? size : 4) <= block.size() ? place : 0;
}

/// Where the value of a counter stands by a plain walk; 0 if it isn't there.
uint64_t walk(const std::string& block, uint32_t pid, uint32_t title) {
    const auto header = partAt<PerfDataBlock>(block, 0, block.size());
    uint64_t begin = header->headerLength;
    for (uint32_t i = 0; i < header->numObjectTypes; ++i) {
        const auto object = partAt<PerfObjectType>(block, begin, block.size());
        if (!object)
            return 0;
        const uint64_t end = std::min<uint64_t>(begin + object->totalByteLength, block.size());
        const bool isWhole = end - begin >= sizeof(PerfObjectType);
        const auto wanted = isWhole ? definitionOf(block, begin, end, title) : std::nullopt;
        uint64_t place = begin + object->definitionLength;
        if (isWhole && object->numInstances > 0) {
            const auto id = definitionOf(block, begin, end, PerfTitle::processId);
            if (!id)
                return 0;
            for (int32_t instance = 0; instance < object->numInstances; ++instance) {
                const auto definition = partAt<PerfInstanceDefinition>(block, place, end);
                if (!definition || definition->byteLength < sizeof(PerfInstanceDefinition))
                    break;
                place += definition->byteLength;
                const auto counters = partAt<PerfCounterBlock>(block, place, end);
                if (!counters)
                    break;
                if (partAt<uint32_t>(block, place + id->counterOffset, end) == pid)
                    if (const uint64_t value = valueAt(block, place, wanted))
                        return value;
                if (counters->byteLength < sizeof(PerfCounterBlock))
                    break;
                place += counters->byteLength;
            }
        } else if (isWhole && place < end) {
            if (const uint64_t value = valueAt(block, place, wanted))
                return value;
        }
        if (object->totalByteLength < sizeof(PerfObjectType))
            return 0;
        begin += object->totalByteLength;
    }
    return 0;
}

void compare(const std::string& block, uint32_t pid, uint32_t title) {
    const auto sample = PerformanceSample::parse(block);
    if (!sample)
        return;
    const CounterLocation found = sample->find(pid, title);
    if ((found ? found.block + found.counter->offset : 0) != walk(block, pid, title))
        std::abort();
}

FuzzedData& data() {
    static FuzzedData fuzzed;
    static StillClock clock;
    static const Platform ports = [] {
        Platform platform = nativePlatform();
        platform.clock = &clock;
        platform.performanceData = &fuzzed;
        return platform;
    }();
    usePlatform(&ports);
    return fuzzed;
}

/// The input: a process id and a title index, the length of the first block, both blocks, and the names.
void tryInput(std::string_view input) {
    struct {
        uint32_t pid;
        uint32_t title;
        uint16_t length;
        uint16_t nameLength;
    } head;
    if (input.size() < sizeof(head))
        return;
    std::memcpy(&head, input.data(), sizeof(head));
    input.remove_prefix(sizeof(head));
    FuzzedData& fuzzed = data();
    fuzzed.count = 0;
    fuzzed.names = input.substr(0, head.nameLength);
    input.remove_prefix(fuzzed.names.size());
    fuzzed.blocks[0] = input.substr(0, head.length);
    fuzzed.blocks[1] = input.substr(fuzzed.blocks[0].size());
    for (std::string& block : fuzzed.blocks)
        block.insert(0, "P\0E\0R\0F\0", 8);
    for (const std::string& block : fuzzed.blocks)
        compare(block, head.pid, head.title);
    const auto query = OscOpenQuery(1);
    OscFindCounter(query.get(), "Private Bytes");
    for (int round = 0; round < 2 && OscCollectQueryData(query.get()) == 0; ++round) {
        for (int32_t mode = 0; mode < 6; ++mode) {
            OscCounter counter{head.pid, head.title, mode, 0, 0, 0};
            OscUpdateCounter(query.get(), counter);
        }
        OscNextSample(query.get());
    }
}
} // namespace

} // namespace Velmor

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    Velmor::tryInput({reinterpret_cast<const char*>(input), size});
    return 0;
}
