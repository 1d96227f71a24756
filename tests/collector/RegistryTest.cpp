// The registry: who holds it, what happens when news of one process comes twice, early or late, and what a lost thread
// leaves behind.

#include "collector/CollectorFixture.h"

#include "platform/Threads.h"
#include "support/Eventually.h"

#include <atomic>
#include <thread>

namespace Velmor {

namespace {
constexpr const char* cad = "c:\\apps\\cad.exe";

class RegistryTest : public ::testing::Test {
protected:
    /// The end of a process as an event reports it: by its executable, and whatever runs under the id by then.
    ProcessPointer endReport(uint32_t pid, const std::string& path, int32_t when) {
        collector.os.processes.start(pid, path);
        ProcessPointer report(new Process(pid, 0, Process::Mode::running, true));
        collector.os.processes.end(pid, 5);
        report->setState(ProcessState::ended);
        report->setEnd(DateTime(when));
        return report;
    }

    int32_t now() { return collector.os.clock.now(); }
    ProcessRegistry& maps() { return runtallyState().registry; }

    Collector collector;
};

/// Holds the registry on a thread of the platform until it is told to let go, or is ended.
struct Holder {
    static uint32_t run(void* argument) {
        auto& self = *static_cast<Holder*>(argument);
        Runtally::checkOutAll();
        self.holds = true;
        while (!self.letGo)
            nativePlatform().clock->sleep(1);
        Runtally::checkInAll();
        return 0;
    }

    Holder() {
        uint32_t error = 0;
        thread = platform().threads->create(run, this, id, error);
        eventually([this] { return holds.load(); });
    }
    ~Holder() {
        letGo = true;
        uint32_t code = 0;
        uint32_t error = 0;
        eventually([&] { return !platform().threads->exitCode(thread, code, error) || code != stillActive; });
    }

    std::atomic<bool> holds{false};
    std::atomic<bool> letGo{false};
    uint32_t id = 0;
    ThreadHandle thread;
};
} // namespace

TEST_F(RegistryTest, AnUnknownIdLeavesNoHoldOnTheLock) {
    ProcessPointer process;
    EXPECT_TRUE(Runtally::checkOut(7, process));
    EXPECT_TRUE(process.isNull());
    EXPECT_EQ(maps().processMonopoly.getCount(), 0);
}

TEST_F(RegistryTest, AThreadThatHoldsTheRegistryCostsTheOthersTheirNewsAndNothingElse) {
    const CapturedLog log(1);
    collector.os.processes.start(7, cad);
    {
        const Holder holder;
        const uint32_t begin = collector.os.clock.ticks();
        collector.poll();
        EXPECT_GE(collector.os.clock.ticks() - begin, 5000U);
        EXPECT_TRUE(log.has("**FAILED addProcess - timeout. Monpoly locked to thread " + std::to_string(holder.id)));
        Runtally::dumpAll();
        EXPECT_TRUE(log.has("Parameters: dumpAll"));
        Runtally::logProcess(endReport(8, cad, now()));
        EXPECT_TRUE(log.has("Access failed. Process 8  could not be logged."));
    }
    EXPECT_TRUE(collector.tracked().empty());
    collector.os.processes.start(9, cad);
    collector.poll();
    EXPECT_TRUE(collector.tracked().contains(9));
}

TEST_F(RegistryTest, ALostThreadsHoldIsFreed) {
    Holder holder;
    Runtally::freeLocksOf(holder.id + 1);
    EXPECT_FALSE(Runtally::checkOutAll()) << "it is another's";
    uint32_t error = 0;
    ASSERT_TRUE(platform().threads->terminate(holder.thread, 1, error));
    Runtally::freeLocksOf(holder.id);
    EXPECT_TRUE(Runtally::checkOutAll());
    Runtally::checkInAll();
}

TEST(RegistryOfManyTest, AnEndThatCameFirstMeetsItsStart) {
    struct Case {
        const char* what;
        const char* endOf;
        int32_t endAt; // after the start
        const char* records;
    };
    for (const auto& [what, endOf, endAt, records] : {
             Case{"its own end", cad, 40, "1:40"},
             Case{"in the second of its start", cad, 0, "1:0"},
             Case{"an end before its start", cad, -1, ""},
             Case{"another program's end", "c:\\other.exe", 40, ""},
         }) {
        Collector fresh;
        const int32_t start = fresh.os.clock.now();
        fresh.os.processes.start(7, endOf);
        ProcessPointer report(new Process(7, 0, Process::Mode::running, true));
        report->setState(ProcessState::ended);
        report->setEnd(DateTime(start + endAt));
        Runtally::logProcess(report);
        fresh.os.processes.start(7, cad);
        fresh.os.clock.advance(60);
        fresh.report(7, ProcessState::started, start);
        EXPECT_TRUE(fresh.tracked().empty()) << what;
        EXPECT_TRUE(runtallyState().registry.endedProcessMap.empty()) << what;
        std::string written;
        for (const UsageLine& record : fresh.records())
            written += (record.isFirst ? "1:" : "0:") + std::to_string(record.duration);
        EXPECT_EQ(written, records) << what;
    }
}

TEST_F(RegistryTest, AnEndThatWaitsIsTakenAtASliceOrDropped) {
    for (const uint32_t pid : {7U, 8U})
        collector.os.processes.start(pid, cad);
    collector.poll();
    collector.os.clock.advance(10);
    maps().endedProcessMap[7] = endReport(7, cad, now() - 2);
    maps().endedProcessMap[8] = ProcessPointer(new Process(8, 0, Process::Mode::running, true));
    collector.os.clock.advance(10);
    Runtally::dumpAll();
    EXPECT_TRUE(maps().endedProcessMap.empty());
    const auto records = collector.records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].end(), now() - 12) << "the end that waited was its own";
    EXPECT_EQ(records[1].end(), now()) << "a process that runs hasn't ended";
    EXPECT_FALSE(collector.tracked().contains(7));
    EXPECT_TRUE(collector.tracked().contains(8));
}

TEST_F(RegistryTest, AnIdInUseAgainEndsItsPredecessorAndAStartReportedTwiceDoesnt) {
    const CapturedLog log(1);
    collector.os.processes.start(7, cad);
    collector.report(7, ProcessState::started, now());
    collector.os.clock.advance(5);
    collector.report(7, ProcessState::started, now());
    EXPECT_FALSE(log.has("(2.08.25)"));
    EXPECT_EQ(collector.tracked().at(7)->getStart().getSeconds(), now() - 5) << "the entry stayed as it was";
    for (int i = 0; i < 100; ++i) {
        collector.os.processes.start(7, "c:\\p" + std::to_string(i) + ".exe");
        collector.report(7, ProcessState::started, now());
        collector.os.clock.advance(2);
    }
    EXPECT_TRUE(log.has("(2.08.25) (Message not found.) Parameters: 7"));
    const auto records = collector.records();
    ASSERT_EQ(records.size(), 100U);
    EXPECT_EQ(records[0].executable + " " + std::to_string(records[0].duration), "cad.exe 5");
    EXPECT_EQ(records[99].executable + " " + std::to_string(records[99].duration), "p98.exe 2");
    EXPECT_EQ(collector.tracked().size(), 1U);
}

} // namespace Velmor
