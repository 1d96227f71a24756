#include "platform/PerformanceData.h"
#include "platform/Errors.h"
#include "platform/PerformanceLayout.h"
#include "platform/linux/performance/LinuxPerformanceData.h"
#include "support/Child.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
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

/// Whether this program holds a file of that process open.
bool holdsFileOf(const Child& child) {
    std::error_code error; // of the one that reads them
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(entry.path(), error)
                .string()
                .starts_with("/proc/" + std::to_string(child.pid()) + "/"))
            return true;
    return false;
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

TEST_F(PerformanceDataTest, FilesOfProcessesThatHaveGoneAreClosedAndWithoutFurtherOnesNoProcessIsMissing) {
    Child gone([] { return pause(); });
    sample();
    EXPECT_TRUE(holdsFileOf(gone));
    gone.signal(SIGKILL);
    gone.reap();
    EXPECT_TRUE(eventually([&] {
        sample();
        return !holdsFileOf(gone);
    }));
    const Child late({"/bin/sleep", "60"});
    Child looker([&] {
        const int last = open("/dev/null", O_RDONLY);
        const rlimit few{static_cast<rlim_t>(last) + 1, static_cast<rlim_t>(last) + 1};
        for (int file = 0; setrlimit(RLIMIT_NOFILE, &few) == 0 && file >= 0;)
            file = open("/dev/null", O_RDONLY);
        return sample().contains(late.pid()) ? 0 : 1;
    });
    EXPECT_EQ(looker.reap(), 0) << "in a copy of this process, whose limit is its own";
}

} // namespace Velmor
