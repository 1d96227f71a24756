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
#include <fstream>
#include <map>
#include <set>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr size_t mebibyte = 1U << 20U;

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
        std::string buffer(4 * mebibyte, '\0');
        size_t size = buffer.size();
        uint32_t error = NativeError::success;
        EXPECT_TRUE(data.sample(buffer.data(), size, error));
        buffer.resize(size);
        return buffer;
    }
    Sample sample() { return takeApart(block()); }

    LinuxPerformanceData data;
};

/// A number behind a word in a file of /proc.
uint64_t kernelSays(uint32_t pid, const char* file, const std::string& word) {
    std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(word))
            return std::stoull(line.substr(word.size()));
    return 0;
}

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

TEST_F(PerformanceDataTest, FiguresAreTheKernelsOwn) {
    const Child child([] {
        constexpr size_t held = 32 * mebibyte;
        void* memory = mmap(nullptr, held, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        std::memset(memory, 1, held);
        const int nowhere = open("/dev/null", O_WRONLY);
        for (int i = 0; i < 100; ++i)
            if (write(nowhere, memory, 12345) != 12345)
                return 1;
        std::thread([] { pause(); }).detach();
        volatile uint64_t sum = 0;
        for (uint64_t i = 0; i < 200000000; ++i)
            sum = sum + i;
        raise(SIGSTOP);
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return child.state() == 'T'; }));
    const Sample taken = sample();
    ASSERT_TRUE(taken.processes.contains(child.pid()));
    const Counters& counters = taken.processes.at(child.pid());
    const auto kib = [&](const char* word) { return 1024 * kernelSays(child.pid(), "status", word); };
    EXPECT_EQ(counters.at(PerfTitle::privateBytes), kib("RssAnon:") + kib("VmSwap:"));
    EXPECT_GE(counters.at(PerfTitle::privateBytes), 32 * mebibyte);
    EXPECT_EQ(counters.at(PerfTitle::threadCount), 2U);
    const uint64_t handles = counters.at(PerfTitle::handleCount);
    EXPECT_TRUE(handles == descriptorsOf(std::to_string(child.pid())).size() || handles == 0) << "0 before Linux 6.2";
    const uint64_t written = kernelSays(child.pid(), "io", "wchar:");
    EXPECT_GE(written, 1234500U);
    EXPECT_EQ(counters.at(PerfTitle::ioWriteBytes), written);
    EXPECT_EQ(counters.at(PerfTitle::ioReadBytes), kernelSays(child.pid(), "io", "rchar:"));
    EXPECT_EQ(counters.at(PerfTitle::ioDataBytes), written + counters.at(PerfTitle::ioReadBytes));
    const auto busy = static_cast<int64_t>(counters.at(PerfTitle::processorTime));
    const auto split = static_cast<int64_t>(counters.at(PerfTitle::userTime) + counters.at(PerfTitle::privilegedTime));
    EXPECT_GT(busy, 100000);
    EXPECT_NEAR(static_cast<double>(busy - split), 0, 210000) << "two ticks of rounding";
    EXPECT_EQ(sample().processes.at(child.pid()), counters) << "a stopped process, read through kept files";
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
