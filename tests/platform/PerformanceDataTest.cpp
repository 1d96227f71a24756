#include "platform/PerformanceData.h"
#include "platform/Errors.h"
#include "platform/PerformanceLayout.h"
#include "platform/linux/LinuxPerformanceData.h"
#include "support/Child.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Velmor {

namespace {

using Counters = std::map<uint32_t, uint64_t>; // by title index

/// A sample, taken apart by a walk along its lengths.
struct Sample {
    PerfDataBlock header{};
    PerfObjectType object{};
    std::map<uint32_t, Counters> processes;
};

template <typename Part>
Part partAt(const std::string& block, size_t place) {
    Part part{};
    EXPECT_LE(place + sizeof(part), block.size());
    std::memcpy(&part, block.data() + place, sizeof(part));
    return part;
}

Sample takeApart(const std::string& block) {
    Sample sample;
    sample.header = partAt<PerfDataBlock>(block, 0);
    const size_t begin = sample.header.headerLength;
    sample.object = partAt<PerfObjectType>(block, begin);
    std::vector<PerfCounterDefinition> definitions;
    for (uint32_t i = 0; i < sample.object.numCounters; ++i) {
        definitions.push_back(partAt<PerfCounterDefinition>(block, begin + sample.object.headerLength +
                                                                       i * sizeof(PerfCounterDefinition)));
    }
    size_t place = begin + sample.object.definitionLength;
    for (int32_t i = 0; i < sample.object.numInstances; ++i) {
        place += partAt<PerfInstanceDefinition>(block, place).byteLength;
        Counters values;
        for (const PerfCounterDefinition& definition : definitions)
            values[definition.counterNameTitleIndex] = definition.counterSize == 8
                                                           ? partAt<uint64_t>(block, place + definition.counterOffset)
                                                           : partAt<uint32_t>(block, place + definition.counterOffset);
        sample.processes[static_cast<uint32_t>(values[PerfTitle::processId])] = values;
        place += partAt<PerfCounterBlock>(block, place).byteLength;
    }
    EXPECT_EQ(place, block.size());
    return sample;
}

class PerformanceDataTest : public ::testing::Test {
protected:
    std::string block() {
        std::string buffer(4U << 20U, '\0');
        size_t size = buffer.size();
        uint32_t error = NativeError::success;
        EXPECT_TRUE(data.sample(buffer.data(), size, error));
        buffer.resize(size);
        return buffer;
    }
    Sample sample() { return takeApart(block()); }

    LinuxPerformanceData data;
};

/// The file descriptors of a process.
std::set<int> descriptorsOf(const std::string& process) {
    std::set<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fd"))
        numbers.insert(std::stoi(entry.path().filename().string()));
    return numbers;
}
} // namespace

TEST_F(PerformanceDataTest, ABlockHasThePublishedLayout) {
    const std::string bytes = block();
    const Sample taken = takeApart(bytes);
    EXPECT_EQ(std::memcmp(bytes.data(), "P\0E\0R\0F\0", 8), 0);
    EXPECT_EQ(taken.header.totalByteLength, bytes.size());
    EXPECT_EQ(taken.object.totalByteLength, bytes.size() - taken.header.headerLength);
}

TEST_F(PerformanceDataTest, ASmallBufferIsToldSoAndALargerOneGetsTheSameMoment) {
    std::string buffer(512, '\0');
    size_t size = buffer.size();
    uint32_t error = NativeError::success;
    ASSERT_FALSE(data.sample(buffer.data(), size, error));
    EXPECT_EQ(error, NativeError::moreData);
    const Child late({"/bin/sleep", "60"});
    EXPECT_FALSE(sample().processes.contains(late.pid()));
    EXPECT_TRUE(sample().processes.contains(late.pid())) << "the next sample is a new one";
}

TEST_F(PerformanceDataTest, WhatHasEndedAndKernelThreadsHaveNoInstance) {
    Child child({"/bin/sleep", "60"});
    const Child odd([] {
        prctl(PR_SET_NAME, "a) S 1 (b", 0, 0, 0);
        raise(SIGSTOP);
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return odd.state() == 'T'; }));
    const Sample taken = sample();
    EXPECT_TRUE(taken.processes.contains(odd.pid())) << "whatever a process calls itself";
    EXPECT_FALSE(taken.processes.contains(2)) << "the parent of kernel threads";
    child.signal(SIGKILL);
    child.awaitEnd();
    EXPECT_FALSE(sample().processes.contains(child.pid())) << "a zombie";
}

TEST_F(PerformanceDataTest, FilesOfProcessesThatHaveGoneAreClosed) {
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < 10; ++i)
        children.push_back(std::make_unique<Child>([] { return pause(); }));
    sample();
    const size_t before = descriptorsOf("self").size();
    children.clear();
    // Other programs of the machine come and go meanwhile, but not as many.
    EXPECT_TRUE(eventually([&] {
        sample();
        return descriptorsOf("self").size() < before - 5;
    }));
}

TEST_F(PerformanceDataTest, WithoutFurtherDescriptorsNoProcessIsMissing) {
    sample();
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const Child late({"/bin/sleep", "60"});
    const rlimit few{static_cast<rlim_t>(*descriptorsOf("self").rbegin() + 1), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    std::vector<int> taken;
    for (int file = open("/dev/null", O_RDONLY); file >= 0; file = open("/dev/null", O_RDONLY))
        taken.push_back(file);
    EXPECT_TRUE(sample().processes.contains(late.pid()));
    setrlimit(RLIMIT_NOFILE, &before);
    for (const int file : taken)
        close(file);
}

} // namespace Velmor
