// The road of one process through the collector, from its start to its last record and its line in the diary.

#include "collector/CollectorFixture.h"

#include "support/DataFiles.h"

namespace Velmor {

namespace {
constexpr const char* cad = "c:\\apps\\cad.exe";

class RecordsTest : public CollectorTest {};

/// The diary of ends.
class EventLogTest : public CollectorTest {
protected:
    EventLogTest() {
        runtallyState().settings.eventLogOn = true;
        runtallyState().settings.eventLogStem = "procevents";
        runtallyState().settings.eventLogDays = 7;
        programState().tempDirectory = temp.path();
    }
    ~EventLogTest() override { runtallyState().settings.eventLogOn = false; }

    /// A process that ends at `when`, a moment before now.
    void end(uint32_t pid, int32_t when) {
        collector.os.processes.start(pid, "c:\\apps\\cad.exe");
        collector.report(pid, ProcessState::started, when - 1);
        collector.report(pid, ProcessState::ended, when);
        collector.os.processes.end(pid, 0);
    }

    TempDirectory temp;
};
} // namespace

TEST(RecordsOfManyTest, ARuleOnTheUserKnowsTheIdValuesToo) {
    for (const auto& [rule, records] : {std::pair{"include user=b7 project=p1", 1U},
                                        {"include user=bob", 0U},
                                        {"include project=p2", 0U}}) { // the value takes the name's place
        Collector fresh(rule);
        fresh.start(7, cad);
        fresh.tracked().at(7)->setUser("bob|user id=b7|project id=p1");
        Runtally::dumpAll();
        EXPECT_EQ(fresh.records().size(), records) << rule;
    }
}

TEST_F(RecordsTest, ARecordReadsToTheLetter) {
    collector.start(7, "C:\\Windows\\System32\\notepad.exe");
    collector.os.clock.advance(300);
    Runtally::dumpAll();
    EXPECT_EQ(dataText(collector.directory.path(), "ProcessLog"),
              "1:1000000000:31:0:WORKGROUP:0:pc17:0:i386:0:Windows XP:0:notepad.exe:0:notepad:0:"
              "c_\\windows\\system32\\:0:undef:0:\\\\PC17\\bob:0:none\n1:300\n");
}

TEST(RecordsOfManyTest, OddNamesGiveRecordsThatStillParse) {
    for (const auto& [path, fields] : {std::pair{"c:\\a:b\\x y.exe", "x y.exe|x y|c_\\a_b\\"},
                                       {"/opt/a:0:b", "a_0_b|a_0_b|/opt/"},
                                       {"/opt/\xe4\xff.bin", "\xe4\xff.bin|\xe4\xff|/opt/"}}) {
        Collector fresh;
        fresh.start(7, path);
        Runtally::dumpAll();
        const auto records = fresh.records();
        ASSERT_EQ(records.size(), 1U) << path;
        EXPECT_EQ(records[0].executable + "|" + records[0].application + "|" + records[0].directory, fields);
    }
}

TEST(RecordsOfManyTest, InvertedTimesAreDroppedQuietlyWithinTenSecondsOfARecord) {
    using Case = std::tuple<bool, int32_t, bool>; // before: seconds by which the end lies before the start
    for (const auto& [logged, before, isError] : {Case{true, 10, false}, Case{true, 11, true}, Case{false, 1, true}}) {
        Collector fresh;
        const CapturedLog log(1);
        fresh.start(7, cad);
        fresh.os.clock.advance(100);
        if (logged)
            Runtally::dumpAll();
        const size_t written = fresh.records().size();
        const int32_t start = fresh.tracked().at(7)->getStart().getSeconds();
        fresh.report(7, ProcessState::ended, start - before);
        EXPECT_EQ(fresh.records().size(), written);
        EXPECT_TRUE(fresh.tracked().empty());
        EXPECT_EQ(log.has("(2.08.28)"), isError) << before;
        EXPECT_EQ(log.has("logEndProcess: StartTime > EndTime, discarding :cad, 7, Start:"), !isError) << before;
    }
}

TEST_F(RecordsTest, AClockSetBackBehindASliceCostsThatSliceOnly) {
    const CapturedLog log(1);
    collector.start(7, cad);
    collector.os.clock.step(-100);
    for (int i = 0; i < 2; ++i) {
        Runtally::dumpAll();
        collector.os.clock.advance(10);
    }
    Runtally::dumpAll();
    EXPECT_EQ(log.count("(2.08.28)"), 1U);
    EXPECT_EQ(collector.story(), "cad.exe 10 cad.exe 10 ");
    EXPECT_TRUE(collector.records()[0].isFirst);
}

TEST_F(RecordsTest, TimesInTheFutureBecomeNow) {
    const CapturedLog log(1);
    collector.os.processes.start(7, cad);
    collector.report(7, ProcessState::started, now() + 1);
    EXPECT_TRUE(log.has("(2.08.26)"));
    EXPECT_EQ(collector.tracked().at(7)->getStart().getSeconds(), now());
    collector.os.clock.advance(10);
    collector.report(7, ProcessState::ended, now() + 30);
    EXPECT_TRUE(log.has("(2.08.27)"));
    EXPECT_EQ(collector.story(), "cad.exe 10 ");
}

TEST(RecordsOfManyTest, WhatTheRulesDontWantLeavesNoTraceNotEvenInTheFirstMark) {
    Collector fresh("include duration=60\n");
    fresh.start(7, cad);
    for (const int32_t slice : {59, 60, 10, 61}) {
        fresh.os.clock.advance(slice);
        fresh.deliver();
    }
    EXPECT_EQ(fresh.story(), "cad.exe 60 cad.exe 61 ");
    EXPECT_TRUE(fresh.records()[0].isFirst && !fresh.records()[1].isFirst);
}

TEST_F(RecordsTest, WhatAPollFindsIsDatedHalfAnIntervalBack) {
    collector.setPollInterval(60);
    collector.os.processes.start(6, cad);
    collector.poll();
    collector.os.clock.advance(60);
    collector.os.processes.start(7, cad);
    collector.poll();
    EXPECT_EQ(collector.tracked().at(7)->getStart().getSeconds(), now() - 30);
    collector.os.clock.advance(100);
    collector.os.processes.end(7, 0);
    collector.poll();
    EXPECT_EQ(collector.records().at(0).end(), now() - 30);
    collector.os.processes.end(6, 0);
    collector.poll();
    EXPECT_EQ(collector.records().at(1).end(), now()) << "it was there at the last look";
}

TEST_F(RecordsTest, AnUnknownExecutableIsParkedUntilItCanBeRead) {
    for (const uint32_t pid : {9U, 10U})
        collector.os.processes.start(pid, cad).modulesFail = 1000;
    collector.poll();
    EXPECT_FALSE(collector.tracked().contains(9)) << "an id of the system's own isn't parked, and has no name";
    EXPECT_EQ(runtallyState().registry.pendingInfoMap.size(), 1U);
    Runtally::retryPendingInfo();
    EXPECT_TRUE(collector.tracked().empty());
    collector.os.processes.at(10).modulesFail = 0;
    Runtally::retryPendingInfo();
    EXPECT_TRUE(runtallyState().registry.pendingInfoMap.empty());
    ASSERT_TRUE(collector.tracked().contains(10));
}

TEST_F(EventLogTest, AnEndIsALineInTheFileOfTheLocalDay) {
    collector.os.clock.zoneMinutes = 120;
    end(1234, now());
    EXPECT_EQ(readFile(temp / "procevents-2001-09-09.eventlog"),
              "1000000000|2001-09-09T03:46:40|1234|c:\\apps\\cad.exe|cad|bob|end\n");
    collector.os.clock.advance(20 * 3600 + 13 * 60 + 20); // midnight by the local clock
    end(1236, now());
    EXPECT_EQ(temp.names(), "procevents-2001-09-09.eventlog procevents-2001-09-10.eventlog");
}

TEST_F(EventLogTest, FilesOlderThanTheConfiguredDaysGoAndOthersStay) {
    for (const char* name : {"procevents-2001-09-01.eventlog", "procevents-2001-09-02.eventlog",
                             "procevents-2001-08-31.txt", "other-2001-01-01.eventlog", "procevents-x.eventlog"})
        temp.write(name, "x\n");
    std::filesystem::create_directories(temp / "procevents-1999-01-01.eventlog");
    end(7, now());
    EXPECT_EQ(temp.names(), "other-2001-01-01.eventlog procevents-1999-01-01.eventlog procevents-2001-08-31.txt "
                            "procevents-2001-09-02.eventlog procevents-2001-09-09.eventlog");
    collector.os.clock.advance(86400);
    end(7, now());
    EXPECT_FALSE(std::filesystem::exists(temp / "procevents-2001-09-02.eventlog"));
}

TEST_F(EventLogTest, LinesThatCantBeWrittenWaitAndAreReportedOnceAMinute) {
    const CapturedLog log(1);
    std::filesystem::remove_all(temp.path());
    end(7, now());
    EXPECT_TRUE(log.has("(2.08.04) (Message not found.) Parameters: log-to-file"));
    EXPECT_EQ(collector.records().size(), 1U) << "usage isn't touched by it";
    end(8, now());
    EXPECT_EQ(log.count("(2.08.33)"), 1U);
    std::filesystem::create_directories(temp.path());
    end(9, now());
    EXPECT_EQ(linesOf(readFile(temp / "procevents-2001-09-09.eventlog")).size(), 3U);
    std::filesystem::remove(temp / "procevents-2001-09-09.eventlog");
    std::filesystem::create_symlink("/dev/full", temp / "procevents-2001-09-09.eventlog");
    end(7, now());
    EXPECT_EQ(log.count("(2.08.33)"), 2U);
}

} // namespace Velmor
