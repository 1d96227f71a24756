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

} // namespace Velmor
