// Data files: their names, their schedule, and what becomes of records when the system fails.

#include "collector/CollectorFixture.h"

#include "support/DataFiles.h"
#include "support/NoSync.h"

#include <fstream>
#include <functional>
#include <set>

namespace Velmor {

namespace {
constexpr int32_t hour = 3600;

/// Lets the n-th call of the system fail that writes, finds or renames files.
class FailingCalls : ReplacedCalls {
public:
    static constexpr int shortWrite = -1; // in place of an error: a write takes one byte only

    FailingCalls(int failAt, int error) {
        state = {failAt, error, 0, systemCalls()};
        SystemCalls& calls = systemCalls();
        replace<&SystemCalls::open, true>(calls.open);
        replace<&SystemCalls::read, true>(calls.read);
        replace<&SystemCalls::fdatasync, true>(calls.fdatasync);
        replace<&SystemCalls::fsync, true>(calls.fsync);
        replace<&SystemCalls::stat>(calls.stat);
        replace<&SystemCalls::fstat>(calls.fstat);
        replace<&SystemCalls::ftruncate>(calls.ftruncate);
        replace<&SystemCalls::rename>(calls.rename);
        replace<&SystemCalls::unlink>(calls.unlink);
        replace<&SystemCalls::mkdir>(calls.mkdir);
        replace<&SystemCalls::chmod>(calls.chmod);
        calls.close = [](int file) {
            const int result = state.real.close(file); // the kernel lets go in any case
            return !isInterruption() && fails() ? fail() : result;
        };
        calls.write = [](int file, const void* buffer, size_t size) -> ssize_t {
            if (!fails())
                return state.real.write(file, buffer, size);
            return state.error == shortWrite ? state.real.write(file, buffer, 1) : fail();
        };
    }
    bool haveFailed() const { return state.count >= state.failAt; }

private:
    static bool isInterruption() { return state.error == EINTR || state.error == shortWrite; }
    static bool fails() { return ++state.count == state.failAt; }
    static int fail() {
        errno = state.error == shortWrite ? EINTR : state.error;
        return -1;
    }
    /// Puts a call that may fail in the place of a real one; a quick one isn't interrupted by any signal.
    template <auto member, bool isSlow = false, typename Result, typename... Parameters>
    static void replace(Result (*&place)(Parameters...)) {
        place = [](Parameters... parameters) {
            return (isSlow || !isInterruption()) && fails() ? static_cast<Result>(fail())
                                                            : (state.real.*member)(parameters...);
        };
    }

    struct State {
        int failAt;
        int error;
        int count;
        SystemCalls real;
    };
    static inline State state{};
};

class DeliveryTest : public CollectorTest {
protected:
    LogFileEntry& entry() { return logFileRegistry().at("process"); }
    LogFile& file() { return *entry().file; }
    /// One round of the delivery thread; true if data went out.
    bool round() {
        const size_t before = delivered();
        DeliverySchedule::deliverDue(DateTime());
        return delivered() > before;
    }
    size_t delivered() {
        size_t count = 0;
        for (const auto& name : std::filesystem::directory_iterator(collector.directory.path()))
            count += name.path().extension() == ".data" ? 1 : 0;
        return count;
    }
};
} // namespace

TEST(DeliveryFaults, ACallThatFailsCostsNoRecordAndNoneComesTwice) {
    const NoSync noSync;
    for (const int error : {ENOSPC, EIO, EROFS, EMFILE, EINTR, FailingCalls::shortWrite}) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            SCOPED_TRACE("call " + std::to_string(n) + " fails with " + std::to_string(error));
            Collector collector;
            for (uint32_t pid = 7; pid < 10; ++pid)
                collector.os.processes.start(pid, "/apps/p" + std::to_string(pid));
            {
                const FailingCalls calls(n, error);
                for (uint32_t pid = 7; pid < 10; ++pid)
                    collector.report(pid, ProcessState::started, collector.os.clock.now());
                for (int i = 0; i < 2; ++i) {
                    collector.os.clock.advance(60);
                    collector.deliver();
                }
                failed = calls.haveFailed();
            }
            collector.os.clock.advance(60);
            collector.deliver();
            collector.deliver(); // what an earlier one could not rename
            const auto records = collector.records();
            ASSERT_EQ(records.size(), 12U);
            ASSERT_EQ(std::set(records.begin(), records.end()).size(), 12U) << "a record came twice";
            ASSERT_EQ(collector.directory.names().find(".tmp"), std::string::npos) << "one isn't handed over";
        }
    }
}

TEST_F(DeliveryTest, AnEndingThatWasCutShortIsMadeUpForWhereverItStood) {
    using Case = std::tuple<const char*, const char*, bool>;
    for (const auto& [what, records, handedOver] :
         {Case{"before the rename", ".make.tmp", false}, Case{"at its end", ".data", true}}) {
        const std::string stem = file().getName().substr(0, file().getName().size() - 5);
        std::ofstream(stem + ".make").put(' ');
        std::filesystem::resize_file(stem + ".make", 0);
        std::ofstream(stem + records) << what;
        const size_t before = delivered();
        EXPECT_TRUE(file().write("another"));
        file().end();
        EXPECT_EQ(delivered() - before, handedOver ? 1U : 2U) << what;
        EXPECT_EQ(readFile(stem + ".data"), what) << "not written over by the next file";
        EXPECT_FALSE(std::filesystem::exists(stem + ".make")) << what;
    }
}

TEST_F(DeliveryTest, WhatTheDiskHasNotTakenIsWrittenAnewBeforeItIsHandedOver) {
    ASSERT_TRUE(file().write("record"));
    const std::string unfinished = file().getName() + ".tmp";
    {
        const ReplacedCalls calls;
        systemCalls().fdatasync = [](int) { return failed(EIO); };
        EXPECT_THROW(file().end(), FileException);
    }
    EXPECT_EQ(delivered(), 0U);
    const std::string doubtful = collector.directory / "doubtful";
    std::filesystem::create_hard_link(unfinished, doubtful);
    file().end();
    const std::string final = unfinished.substr(0, unfinished.find(".make")) + ".data";
    EXPECT_EQ(readFile(final), "record");
    EXPECT_FALSE(std::filesystem::equivalent(final, doubtful)) << "a second flush of the same file proves nothing";
}

TEST_F(DeliveryTest, RecordsOfAFullDiskWaitAndAreToldOfOnceAMinute) {
    const CapturedLog log(0);
    collector.start(7, "/apps/p7");
    {
        const ReplacedCalls calls;
        systemCalls().write = [](int descriptor, const void* data, size_t size) -> ssize_t {
            errno = ENOSPC;
            return static_cast<const char*>(data)[0] == '1' ? -1 : ::write(descriptor, data, size);
        };
        for (int i = 0; i < 90; ++i) {
            collector.os.clock.advance(1);
            Runtally::dumpAll();
        }
    }
    EXPECT_EQ(log.count("(2.21.04)"), 2U);
    EXPECT_EQ(log.count("(2.21.30)"), 2U);
    EXPECT_EQ(log.count("(2.21.18)"), 0U);
    collector.deliver();
    const auto records = collector.records();
    ASSERT_EQ(records.size(), 91U);
    EXPECT_TRUE(log.has("(2.21.18) (Message not found.) Parameters: " + file().getName().substr(0, 5)));
    for (size_t i = 0; i < records.size(); ++i)
        EXPECT_EQ(records[i].isFirst, i == 0);
}

TEST(WaitingRecords, TheOldestMakeRoomAndAreCounted) {
    WaitingRecords waiting;
    const std::string quarter(WaitingRecords::mostBytes / 4, 'x');
    for (const char letter : {'a', 'b', 'c', 'd', 'e'})
        waiting.add(letter + quarter.substr(1));
    EXPECT_EQ(waiting.dropped(), 1U);
    std::string order;
    EXPECT_FALSE(waiting.drain([&](const std::string& record) {
        order += record.front();
        return order.size() < 3;
    }));
    EXPECT_TRUE(waiting.drain([&](const std::string& record) { return !(order += record.front()).empty(); }));
    EXPECT_EQ(order, "bcdde");
}

TEST_F(DeliveryTest, AFileThatOthersTookAwayIsToldOfOnceAndAnotherOneBegun) {
    const std::string directory = collector.directory.path();
    const std::string aside = directory.substr(0, directory.size() - 1) + ".aside";
    const auto removeFiles = [&] {
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::remove(entry);
    };
    const std::function<void()> losses[] = {[&] { std::filesystem::remove_all(directory); }, removeFiles,
                                            [&] {
                                                std::filesystem::rename(directory, aside);
                                                std::filesystem::create_directory(directory);
                                            }};
    for (const auto& lose : losses) {
        std::filesystem::remove_all(aside);
        const CapturedLog log(0);
        ASSERT_TRUE(file().writeRecord("lost"));
        lose();
        collector.os.clock.advance(1);
        ASSERT_TRUE(file().writeRecord("kept"));
        ASSERT_TRUE(file().writeRecord("too"));
        EXPECT_EQ(log.count("(2.21.17)"), 1U) << log.text();
        file().end();
        EXPECT_EQ(dataText(directory, "ProcessLog"), "kept\ntoo\n");
        removeFiles();
        std::filesystem::remove_all(aside);
        // At a delivery nothing else is written that could notice.
        ASSERT_TRUE(file().writeRecord("lost"));
        lose();
        collector.os.clock.advance(1);
        file().end();
        EXPECT_EQ(log.count("(2.21.17)"), 2U) << log.text();
        std::filesystem::create_directories(directory);
        EXPECT_EQ(delivered(), 0U) << "an empty file would tell of a period without usage";
        EXPECT_EQ(log.count("(2.21.18)"), 0U) << "nothing had to wait";
    }
    std::filesystem::remove_all(aside);
}

TEST_F(DeliveryTest, PeriodsFollowTheLocalClock) {
    collector.os.clock.zoneMinutes = 60;
    entry().interval = TimeSpan(12 * hour);
    collector.start(7, "/apps/p7"); // 02:46:40 by the local clock
    EXPECT_FALSE(round()) << "the first look";
    EXPECT_EQ(entry().lastDelivered.toString(false, false), "2001-09-09T00:00:00");
    collector.os.clock.advance(9 * hour + 13 * 60 + 19);
    EXPECT_FALSE(round()) << "a second before noon";
    collector.os.clock.advance(1);
    EXPECT_TRUE(round());
    EXPECT_FALSE(round());
    collector.os.clock.advance(30 * hour); // asleep across two deliveries
    EXPECT_TRUE(round());
    EXPECT_EQ(entry().lastDelivered.toString(false, false), "2001-09-10T12:00:00") << "they are not caught up";
    collector.os.clock.advance(5 * hour);
    collector.os.clock.step(-hour);
    EXPECT_FALSE(round());
    collector.os.clock.advance(hour + 2 * hour);
    EXPECT_TRUE(round());
    collector.deliver();
    EXPECT_EQ(entry().lastDelivered.toString(false, false), "2001-09-11T00:00:00") << "a command leaves the schedule";
}

} // namespace Velmor
