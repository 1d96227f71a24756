#include "support/SampleBuilder.h"

#include <cstring>

namespace Velmor {

namespace {
template <typename Part>
void append(std::string& bytes, const Part& part) {
    bytes.append(reinterpret_cast<const char*>(&part), sizeof(part));
}

void appendValues(std::string& bytes, const PaperObject& object, const std::vector<int64_t>& values) {
    std::string block(sizeof(PerfCounterBlock), '\0');
    for (size_t i = 0; i < object.counters.size(); ++i)
        block.append(reinterpret_cast<const char*>(&values.at(i)), object.counters[i].size);
    const auto size = static_cast<uint32_t>(block.size());
    std::memcpy(block.data(), &size, sizeof(size));
    bytes += block;
}

std::string objectBytes(const PaperObject& object) {
    PerfObjectType header{};
    header.headerLength = sizeof(header);
    header.definitionLength =
        static_cast<uint32_t>(sizeof(header) + object.counters.size() * sizeof(PerfCounterDefinition));
    header.numCounters = static_cast<uint32_t>(object.counters.size());
    header.numInstances = object.hasInstances ? static_cast<int32_t>(object.instances.size()) : -1;
    header.perfTime = object.perfTime;
    header.perfFreq = object.perfFreq;
    std::string bytes;
    append(bytes, header);
    uint32_t offset = sizeof(PerfCounterBlock);
    for (const PaperCounter& counter : object.counters) {
        PerfCounterDefinition definition{};
        definition.byteLength = sizeof(definition);
        definition.counterNameTitleIndex = counter.title;
        definition.counterType = counter.type;
        definition.counterSize = counter.size;
        definition.counterOffset = offset;
        offset += counter.size;
        append(bytes, definition);
    }
    for (const std::vector<int64_t>& values : object.instances) {
        if (object.hasInstances) {
            PerfInstanceDefinition instance{};
            instance.byteLength = sizeof(instance);
            append(bytes, instance);
        }
        appendValues(bytes, object, values);
    }
    const auto size = static_cast<uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &size, sizeof(size));
    return bytes;
}
} // namespace

std::string PaperSample::bytes() const {
    PerfDataBlock header{};
    header.signature = {'P', 'E', 'R', 'F'};
    header.littleEndian = littleEndian;
    header.headerLength = sizeof(header);
    header.numObjectTypes = static_cast<uint32_t>(objects.size());
    header.perfTime = perfTime;
    header.perfFreq = perfFreq;
    header.perfTime100nSec = perfTime100ns;
    std::string bytes;
    append(bytes, header);
    for (const PaperObject& object : objects)
        bytes += objectBytes(object);
    return bytes;
}

} // namespace Velmor
