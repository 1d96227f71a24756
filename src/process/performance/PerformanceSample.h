#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Velmor {

/// A counter definition of an object in a sample.
struct SampleCounter {
    uint32_t title = 0;
    uint32_t type = 0; // of PerfType
    uint32_t size = 0; // bytes
    uint32_t offset = 0;
};

/// An object in a sample, with the counter blocks of its instances by process id.
struct SampleObject {
    static constexpr size_t outside = static_cast<size_t>(-1); // of the sample

    struct Instance {
        uint32_t pid;
        size_t block; // where its counter block stands
    };

    std::vector<SampleCounter> counters; // in the order of their definitions
    std::vector<Instance> instances;     // by process id, those of one id in the order of the sample
    bool hasInstances = false;
    bool tellsProcessIds = false;
    size_t block = outside; // of an object without instances
    int64_t perfTime = 0;
    int64_t perfFreq = 0;
};

/// Where a counter of a process stands in a sample. Valid as long as the sample.
struct CounterLocation {
    const SampleObject* object = nullptr;
    const SampleCounter* counter = nullptr;
    size_t block = 0; // its counter block

    explicit operator bool() const { return counter != nullptr; }
};

/// A block of raw performance data and an index of it, made once. What lies outside the block, whatever lengths and
/// offsets say, isn't there.
class PerformanceSample {
public:
    /// Takes a block over; null if it isn't one.
    static std::unique_ptr<PerformanceSample> parse(std::string bytes);

    /// The counter of a process: the first match of a walk through objects, instances and definitions. An object
    /// without instances fits any process; one that has instances, but doesn't tell their ids, ends the walk.
    CounterLocation find(uint32_t pid, uint32_t title) const;

    /// Reads a counter, with the halves of 8 bytes exchanged where the order of bytes asks for it.
    double read(const CounterLocation& location, bool littleEndian) const;
    /// Reads the base that belongs to a counter; 0 if it has none.
    double readBase(const CounterLocation& location, bool littleEndian) const;

    uint32_t littleEndian() const { return littleEndian_; }
    int64_t perfTime() const { return perfTime_; }
    int64_t perfFreq() const { return perfFreq_; }
    int64_t perfTime100ns() const { return perfTime100ns_; }
    const std::vector<SampleObject>& objects() const { return objects_; }

private:
    explicit PerformanceSample(std::string bytes) : bytes_(std::move(bytes)) {}

    template <typename Part>
    bool get(size_t place, size_t end, Part& part) const;
    bool readHeader();
    void readObject(size_t begin, size_t end, SampleObject& object) const;
    void readInstances(size_t begin, size_t end, int32_t count, SampleObject& object) const;
    bool isInside(const SampleCounter& counter, size_t block) const;
    CounterLocation locate(const SampleObject& object, size_t block, uint32_t title) const;
    double readAt(const SampleCounter& counter, size_t block, bool littleEndian) const;

    std::string bytes_;
    uint32_t littleEndian_ = 0;
    int64_t perfTime_ = 0;
    int64_t perfFreq_ = 0;
    int64_t perfTime100ns_ = 0;
    std::vector<SampleObject> objects_;
};

} // namespace Velmor
