#include "collector/SideRecords.h"

#include "programs/collectors/agent/ThreadRecord.h"

#include <cfloat>

namespace Velmor {

namespace {
constexpr uint32_t pid = 1234;
constexpr const char* fourCounters =
    "Elapsed Time|abs\n% Processor Time|avg\nPrivate Bytes|avg\nIO Data Bytes/sec|avg\n";

class PerformanceTest : public SideRecordsTest {
protected:
    using Lines = std::vector<std::string>;

    /// The measures of the performance records.
    Lines measures() const {
        Lines found;
        const Lines text = lines("PerfMonLog");
        for (size_t i = 1; i < text.size(); i += 2)
            found.push_back(text[i]);
        return found;
    }
    std::string measure() const { return measures().empty() ? "none" : measures().back(); }
    ProcessCounter& counter(size_t number) { return tracked(pid).counters().at(number); }
    /// Puts a gathered value in a counter of the process.
    void gathered(size_t number, double value, int32_t samples) {
        counter(number).value = value;
        counter(number).samples = samples;
    }
};
} // namespace

TEST_F(PerformanceTest, ARecordHasTheDocumentedForm) {
    monitor(fourCounters);
    start(pid, "c:\\windows\\system32\\note:pad.exe");
    tracked(pid).setApplication("note:pad");
    gathered(0, 0, 1);
    gathered(1, 100, 4); // 25 percent
    gathered(2, 4 * 1048576.0, 4);
    gathered(3, 8000, 4);
    os().clock.advance(100);
    dumpPerfMon();
    EXPECT_EQ(lines("PerfMonLog"),
              (Lines{R"(1:1000000000:87:0:undef:0:\\PC17\bob:0:pc17:0:i386:0:Windows XP:0:note_pad.exe:0:none)"
                     R"(:0:WORKGROUP:0:undef:0:note_pad)",
                     "1:25:100:2000:25:100:9.765625:104857600:104857600"}));
}

TEST_F(PerformanceTest, ElapsedCountsFromTheRecordBeforeAndEndsWithTheProcess) {
    monitor(fourCounters);
    start(pid, "c:\\apps\\cad.exe");
    gathered(1, 50, 1);
    os().clock.advance(100);
    dumpPerfMon();
    EXPECT_EQ(measure().substr(0, 9), "1:50:100:");
    Runtally::dumpAll();
    EXPECT_EQ(measures().size(), 1U) << "a slice of a running process writes none";
    os().clock.advance(40);
    gathered(1, 25, 1);
    dumpPerfMon();
    EXPECT_EQ(measure().substr(0, 8), "1:10:40:");
    os().clock.advance(20);
    gathered(1, 100, 2);
    end(pid, 3);
    EXPECT_EQ(measure().substr(0, 8), "1:10:20:");
    EXPECT_NE(lines("PerfMonLog")[4].find(":0:cad.exe:0:3:0:WORKGROUP"), std::string::npos);
    EXPECT_EQ(lines("PerfMonLog")[4].substr(0, 13), "1:1000000100:") << "the start moves with slices only";
    EXPECT_EQ(measures().size(), 3U);
}

TEST_F(PerformanceTest, ModesAndRolesDecideWhatACounterSays) {
    struct Case {
        const char* file;
        double value;
        int32_t samples;
        const char* measure; // of 10 seconds
    };
    for (const auto& [file, value, samples, expected] : {
             Case{"Private Bytes|abs\n", 7, 3, "1:0:10:0:0:10:0.00000652:70:70"},
             Case{"Private Bytes|avg\n", 30, 3, "1:0:10:0:0:10:0.00000931:100:100"},
             Case{"Private Bytes|min\n", DBL_MAX, 0, "1:0:10:0:0:10:0:0:0"}, // never polled
             Case{"Private Bytes|abs\n", -7, 3, "1:0:10:0:0:10:0:0:0"},
             Case{"% Processor Time|max # most\n", 250, 3, "1:25:10:0:250:10:0:0:0"},
         }) {
        monitor("Elapsed Time|abs\n" + std::string(file));
        start(pid, "c:\\apps\\cad.exe");
        gathered(1, value, samples);
        os().clock.advance(10);
        dumpPerfMon();
        EXPECT_EQ(measure(), expected) << file << value;
        os().processes.end(pid, 0);
        Runtally::removeProcess(pid);
        runtallyState().processRules.clear();
    }
}

TEST_F(PerformanceTest, TheNumberOfMonitoredEntriesIsRightAtAllTimes) {
    monitor(fourCounters, "cad.exe");
    const auto monitoredCount = []() -> int32_t { return runtallyState().registry.monitoredCount; };
    start(1, "c:\\apps\\cad.exe");
    start(2, "c:\\apps\\vim.exe");
    start(3, "c:\\apps\\CAD.exe");
    EXPECT_EQ(monitoredCount(), 2);
    collector.report(3, ProcessState::started, os().clock.now());
    EXPECT_EQ(monitoredCount(), 2) << "reported twice";
    os().clock.advance(5);
    start(1, "c:\\apps\\cad.exe"); // the number is in use again
    EXPECT_EQ(monitoredCount(), 2);
    end(1, 0);
    end(2, 0);
    EXPECT_EQ(monitoredCount(), 1);
    Runtally::removeProcess(3);
    Runtally::removeProcess(3);
    EXPECT_EQ(monitoredCount(), 0);
}

TEST_F(PerformanceTest, WithoutASampleTheThreadEndsAndTheRegistryIsFree) {
    monitor(fourCounters);
    start(pid, "c:\\apps\\cad.exe");
    os().performanceData.canSample = false;
    const CapturedLog log(4);
    ThreadRecord record("PerformanceMonitor", ThreadRecord::takesPart);
    perfMonitor(&record);
    EXPECT_TRUE(log.has("OscCollectQueryData failed: Stop thread PerformanceMonitor"));
    EXPECT_FALSE(runtallyState().registry.processMonopoly.isEnforced());
}

} // namespace Velmor
