// Records beside those of usage: of modules, and of performance.

#include "collector/CollectorFixture.h"

#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/records/PerformanceRecord.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"
#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"
#include "support/DataFiles.h"

#include <thread>

namespace Velmor {

namespace {
constexpr int32_t begin = 1000000000; // of the scripted clock
constexpr uint32_t pid = 1234;
constexpr const char* fourCounters =
    "Elapsed Time|abs\n% Processor Time|avg\nPrivate Bytes|avg\nIO Data Bytes/sec|avg\n";

class SideRecordsTest : public CollectorTest {
protected:
    using Lines = std::vector<std::string>;

    SideRecordsTest() {
        runtallyState().settings.moduleLogging = true;
        runtallyState().settings.performanceMonitoring = true;
        registerLogFile(collector.directory / "ModuleLog", "module", TimeSpan(), false, nullptr);
        registerLogFile(collector.directory / "PerfMonLog", "perfmon", TimeSpan(3600), true, dumpPerfMon);
    }

    ScriptedPlatform& os() { return collector.os; }
    Process& tracked(uint32_t id) { return *collector.tracked().at(id); }
    ProcessPointer start(uint32_t id, const std::string& path) { return collector.start(id, path); }
    void end(uint32_t id, uint32_t exitCode) {
        os().processes.end(id, exitCode);
        collector.report(id, ProcessState::ended, os().clock.now());
    }
    void useRules(const std::string& rules) {
        const TempDirectory files;
        std::string error;
        runtallyState().includeExclude.clear();
        ASSERT_TRUE(runtallyState().includeExclude.load(files.write("rules", rules), error)) << error;
    }
    Lines lines(const std::string& stem) const { return dataLines(collector.directory.path(), stem); }

    void poll() { modPoll(report); }
    std::vector<std::string>& modules() { return os().processes.at(pid).modules; }
    /// Pairs of module and seconds.
    Lines moduleRecords() const {
        Lines found;
        for (const RecordLines& record : parseLines(dataText(collector.directory.path(), "ModuleLog")))
            found.push_back(record.fields[5] + " " + record.measures[1]);
        return found;
    }

    /// Reads a counters file, and watches the executables of these names.
    void monitor(const std::string& names = "*") {
        const TempDirectory files;
        ASSERT_TRUE(readCountersFile(files.write("counters", fourCounters)));
        ASSERT_TRUE(runtallyState().processRules.readFile(files.write("rules", "+ host=*\n" + names + "\n")));
    }
    /// Puts a gathered value in a counter of the process.
    void gathered(size_t number, double value, int32_t samples) {
        tracked(pid).counters().at(number).value = value;
        tracked(pid).counters().at(number).samples = samples;
    }
    std::vector<RecordLines> performance() const {
        return parseLines(dataText(collector.directory.path(), "PerfMonLog"));
    }
    /// The beginning of the last record's measures: processor seconds and seconds.
    std::string measure() const {
        const auto records = performance();
        return records.empty() ? "none" : records.back().measures[1] + ":" + records.back().measures[2];
    }

    std::atomic<int32_t> report{Report::nothing};
};
} // namespace

TEST_F(SideRecordsTest, AModuleRecordHasTheDocumentedForm) {
    useRules("include datatype=module app=notepad module=msvcrt.dll user=bob exe=*notepad.exe duration=120\n");
    ScriptedProcess& process = os().processes.start(pid, "c:\\windows\\system32\\notepad.exe");
    process.modules = {"c:\\windows\\MSVCRT.dll"};
    collector.report(pid, ProcessState::started, begin);
    tracked(pid).setApplication("notepad");
    os().clock.advance(120);
    modules().clear();
    poll();
    EXPECT_EQ(lines("ModuleLog"),
              (Lines{R"(1:1000000000:53:0:WORKGROUP:0:pc17:0:i386:0:Windows XP:0:msvcrt.dll:0:notepad.exe)"
                     R"(:0:notepad:0:c_\windows\system32\:0:undef:0:\\PC17\bob)",
                     "1:120"}));
}

TEST_F(SideRecordsTest, AModuleHasOneRecordWhenItIsGoneOrAtTheEndOfItsProcess) {
    os().processes.start(pid, "c:\\apps\\cad.exe").modules = {"c:\\a.dll", "c:\\b.dll"};
    collector.report(pid, ProcessState::started, begin);
    os().clock.advance(30);
    modules() = {"c:\\b.dll", "c:\\c:odd.dll"};
    poll();
    EXPECT_EQ(moduleRecords(), (Lines{"a.dll 30"}));
    os().clock.advance(40);
    modules() = {"c:\\b.dll"};
    Runtally::dumpAll();
    EXPECT_EQ(moduleRecords(), (Lines{"a.dll 30", "c:odd.dll 40"})) << "a slice looks as well";
    os().clock.advance(5);
    end(pid, 0);
    EXPECT_EQ(moduleRecords(), (Lines{"a.dll 30", "c:odd.dll 40", "b.dll 75"})) << "and the image itself has none";
}

TEST_F(SideRecordsTest, APerformanceRecordHasTheDocumentedForm) {
    useRules("include datatype=process cpu=0.25 memory=1048576 io=2000 app=note:pad user=bob\n");
    monitor();
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

TEST_F(SideRecordsTest, ACountersFileNamesCountersAndHowTheyAreGathered) {
    const TempDirectory files;
    EXPECT_FALSE(readCountersFile(files.write("counters", "# none\n\n")));
    ASSERT_TRUE(readCountersFile(files.write("counters", "# comment\n\n  elapsed time|max \nPrivate Bytes|odd\n"
                                                         "Private Bytes\n% Processor Time|sum\nNobody's|min\n")));
    std::string entries;
    for (const CounterEntry& entry : runtallyState().performance.counters)
        entries += std::to_string(entry.counterId) + ":" + std::to_string(entry.mode) + " ";
    const auto number = [](uint32_t title) { return std::to_string(title); };
    EXPECT_EQ(entries, number(PerfTitle::elapsedTime) + ":3 " + number(PerfTitle::privateBytes) + ":0 " +
                           number(PerfTitle::privateBytes) + ":0 " + number(PerfTitle::processorTime) + ":1 0:4 ");
}

TEST_F(SideRecordsTest, ElapsedCountsFromTheRecordBeforeAndEndsWithTheProcess) {
    monitor();
    start(pid, "c:\\apps\\cad.exe");
    gathered(1, 50, 1);
    os().clock.advance(100);
    dumpPerfMon();
    EXPECT_EQ(measure(), "50:100");
    Runtally::dumpAll();
    EXPECT_EQ(performance().size(), 1U) << "a slice of a running process writes none";
    os().clock.advance(40);
    gathered(1, 25, 1);
    dumpPerfMon();
    EXPECT_EQ(measure(), "10:40");
    os().clock.advance(20);
    gathered(1, 100, 2);
    end(pid, 3);
    EXPECT_EQ(measure(), "10:20");
    const auto records = performance();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[2].fields[7], "3");
    EXPECT_EQ(records[2].start(), begin + 100) << "the start moves with slices only";
}

TEST_F(SideRecordsTest, TheNumberOfMonitoredEntriesIsRightAtAllTimes) {
    monitor("cad.exe");
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

TEST_F(SideRecordsTest, WithoutASampleTheThreadEndsAndTheRegistryIsFree) {
    monitor();
    start(pid, "c:\\apps\\cad.exe");
    os().performanceData.canSample = false;
    const CapturedLog log(4);
    ThreadRecord record("PerformanceMonitor", ThreadRecord::takesPart);
    perfMonitor(&record);
    EXPECT_TRUE(log.has("OscCollectQueryData failed: Stop thread PerformanceMonitor"));
    std::thread([] {
        EXPECT_TRUE(Runtally::checkOutAll());
        Runtally::checkInAll();
    }).join();
}

} // namespace Velmor
