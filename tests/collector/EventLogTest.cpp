#include "collector/CollectorFixture.h"

#include "support/DataFiles.h"

namespace Velmor {

namespace {
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
