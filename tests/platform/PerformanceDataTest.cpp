#include "platform/PerformanceData.h"
#include "platform/Errors.h"
#include "platform/PerformanceLayout.h"
#include "platform/linux/performance/LinuxPerformanceData.h"
#include "support/Child.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <algorithm>
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

template <typename Part>
Part partAt(const std::string& block, size_t place) {
    Part part{};
    EXPECT_LE(place + sizeof(part), block.size());
    std::memcpy(&part, block.data() + place, sizeof(part));
    return part;
}

/// The ids of the processes in a block, by a walk along its lengths that must end with it.
std::set<uint32_t> processesIn(const std::string& block) {
    size_t place = partAt<PerfDataBlock>(block, 0).headerLength;
    const auto object = partAt<PerfObjectType>(block, place);
    size_t idOffset = 0;
    for (uint32_t i = 0; i < object.numCounters; ++i) {
        const size_t definition = place + object.headerLength + i * sizeof(PerfCounterDefinition);
        if (const auto counter = partAt<PerfCounterDefinition>(block, definition);
            counter.counterNameTitleIndex == PerfTitle::processId)
            idOffset = counter.counterOffset;
    }
    place += object.definitionLength;
    std::set<uint32_t> processes;
    for (int32_t i = 0; i < object.numInstances; ++i) {
        place += partAt<PerfInstanceDefinition>(block, place).byteLength;
        processes.insert(partAt<uint32_t>(block, place + idOffset));
        place += partAt<PerfCounterBlock>(block, place).byteLength;
    }
    EXPECT_EQ(place, block.size());
    return processes;
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
    std::set<uint32_t> sample() { return processesIn(block()); }

    LinuxPerformanceData data;
};

/// Descriptors of this program, with what they are of.
std::map<int, std::string> openDescriptors() {
    std::map<int, std::string> files;
    std::error_code error; // of the one that reads them
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        files[std::stoi(entry.path().filename().string())] = std::filesystem::read_symlink(entry.path(), error);
    return files;
}

bool isAnyOf(const Child& child) {
    const std::string directory = "/proc/" + std::to_string(child.pid()) + "/";
    const auto files = openDescriptors();
    return std::any_of(files.begin(), files.end(),
                       [&](const auto& file) { return file.second.starts_with(directory); });
}
} // namespace

TEST_F(PerformanceDataTest, ASmallBufferIsToldSoAndALargerOneGetsTheSameMoment) {
    std::string buffer(512, '\0');
    size_t size = buffer.size();
    uint32_t error = NativeError::success;
    ASSERT_FALSE(data.sample(buffer.data(), size, error));
    EXPECT_EQ(error, NativeError::moreData);
    const Child late({"/bin/sleep", "60"});
    EXPECT_FALSE(sample().contains(late.pid()));
    EXPECT_TRUE(sample().contains(late.pid())) << "the next sample is a new one";
}

TEST_F(PerformanceDataTest, WhatHasEndedAndKernelThreadsHaveNoInstance) {
    Child child({"/bin/sleep", "60"});
    const Child odd([] {
        prctl(PR_SET_NAME, "a) S 1 (b", 0, 0, 0);
        raise(SIGSTOP);
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return odd.state() == 'T'; }));
    const std::set<uint32_t> taken = sample();
    EXPECT_TRUE(taken.contains(odd.pid())) << "whatever a process calls itself";
    EXPECT_FALSE(taken.contains(2)) << "the parent of kernel threads";
    child.signal(SIGKILL);
    child.awaitEnd();
    EXPECT_FALSE(sample().contains(child.pid())) << "a zombie";
}

TEST_F(PerformanceDataTest, FilesOfProcessesThatHaveGoneAreClosed) {
    Child child([] { return pause(); });
    sample();
    EXPECT_TRUE(isAnyOf(child));
    child.signal(SIGKILL);
    child.reap();
    EXPECT_TRUE(eventually([&] {
        sample();
        return !isAnyOf(child);
    }));
}

TEST_F(PerformanceDataTest, WithoutFurtherDescriptorsNoProcessIsMissing) {
    sample();
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const Child late({"/bin/sleep", "60"});
    const rlimit few{static_cast<rlim_t>(openDescriptors().rbegin()->first + 1), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    std::vector<int> taken;
    for (int file = open("/dev/null", O_RDONLY); file >= 0; file = open("/dev/null", O_RDONLY))
        taken.push_back(file);
    EXPECT_TRUE(sample().contains(late.pid()));
    setrlimit(RLIMIT_NOFILE, &before);
    for (const int file : taken)
        close(file);
}

} // namespace Velmor
