// The registry: who holds it, what happens when news of one process comes twice, early or late, and what a lost thread
// leaves behind.

#include "collector/CollectorFixture.h"

#include "platform/Threads.h"
#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"

#include <future>
#include <thread>

namespace Velmor {

namespace {
constexpr const char* cad = "c:\\apps\\cad.exe";

class RegistryTest : public CollectorTest {};

/// The end of a process as an event reports it: by its executable, and whatever runs under the id by then.
ProcessPointer endReport(Collector& collector, uint32_t pid, const std::string& path, int32_t when) {
    collector.os.processes.start(pid, path);
    ProcessPointer report(new Process(pid, 0, Process::Mode::running, true));
    collector.os.processes.end(pid, 5);
    report->setState(ProcessState::ended);
    report->setEnd(DateTime(when));
    return report;
}

} // namespace

TEST_F(RegistryTest, AThreadThatHoldsTheRegistryHoldsTheOthersUpForFiveSeconds) {
    const CapturedLog log(1);
    collector.os.processes.start(7, cad);
    {
        std::promise<uint32_t> held;
        const std::jthread holder([&](const std::stop_token& end) {
            Runtally::checkOutAll();
            held.set_value(platform().threads->currentId());
            while (!end.stop_requested())
                nativePlatform().clock->sleep(1);
            Runtally::checkInAll();
        });
        const uint32_t holderId = held.get_future().get();
        const uint32_t begin = collector.os.clock.ticks();
        collector.poll();
        EXPECT_GE(collector.os.clock.ticks() - begin, 5000U);
        EXPECT_TRUE(log.has("**FAILED procPoll - timeout. Monpoly locked to thread " + std::to_string(holderId)));
        Runtally::dumpAll();
        EXPECT_TRUE(log.has("Parameters: dumpAll"));
        Runtally::logProcess(endReport(collector, 8, cad, now()));
        EXPECT_TRUE(log.has("Access failed. Process 8  could not be logged."));
        runtallyState().registry.monitoredCount = 1;
        ThreadRecord record("PerformanceMonitor", ThreadRecord::takesPart);
        const uint32_t begun = collector.os.clock.ticks();
        collector.os.clock.onSleep = [&] {
            if (collector.os.clock.ticks() - begun > 20000)
                record.report = Report::stop;
        };
        perfMonitor(&record);
        collector.os.clock.onSleep = nullptr;
        EXPECT_GT(collector.os.clock.ticks() - begun, 20000U) << "the monitor tries again";
    }
    EXPECT_TRUE(collector.tracked().empty());
    collector.poll();
    EXPECT_TRUE(collector.tracked().contains(7)) << "the next round finds what the poller could not take";
}

TEST_F(RegistryTest, WithoutHandlesThePollEndsWhatItHoldsAndSaysSoOnce) {
    const CapturedLog log(1);
    for (const uint32_t pid : {7U, 8U, 9U})
        collector.os.processes.start(pid, cad).knowsExitCode = false;
    collector.poll();
    collector.os.processes.start(20, cad).openError = NativeError::tooManyOpenFiles;
    for (const uint32_t pid : {7U, 8U, 9U}) {
        collector.os.processes.canEnumerate = pid == 8; // between the two others
        collector.os.processes.end(pid, 0);
        for (int i = 0; i < 2; ++i)
            collector.poll();
        EXPECT_FALSE(collector.tracked().contains(pid));
        Process::tellUnknownCodes(false);
    }
    Process::tellUnknownCodes(true);
    EXPECT_EQ(log.count("(2.08.43)") + log.count("(2.08.44)"), 1U);
    EXPECT_EQ(log.count("(2.08.13)"), 1U) << "the first by its name";
    EXPECT_TRUE(log.has("(2.08.45) (Message not found.) Parameters: 2"));
    collector.os.processes.at(20).openError = 0;
    Runtally::retryPendingInfo();
    EXPECT_EQ(collector.tracked().at(20)->getAccount(), "\\\\PC17\\bob");
}

TEST_F(RegistryTest, WhatAPollSawBetweenForkAndExecutionBearsTheProgramThatItBecame) {
    collector.os.processes.start(6, "/apps/other");
    collector.poll();
    ScriptedProcess& process = collector.os.processes.start(7, "/bin/sh");
    collector.os.clock.advance(2);
    collector.poll();
    EXPECT_TRUE(collector.tracked().contains(7));
    process.path = "/apps/cad";
    collector.report(7, ProcessState::started, now());
    collector.os.clock.advance(5);
    collector.report(7, ProcessState::ended, now());
    EXPECT_EQ(collector.story(), "cad 5 ");
}

TEST_F(RegistryTest, AProcessThatEndsWhileItWaitsForItsNameHasItsRecordAndFreesItsId) {
    collector.os.processes.start(10, cad).modulesFail = 1000;
    collector.poll();
    collector.os.processes.start(11, cad); // a round between, whose objects are new
    collector.poll();
    EXPECT_FALSE(collector.tracked().contains(10));
    collector.os.clock.advance(30);
    collector.os.processes.end(10, 0);
    collector.poll();
    EXPECT_EQ(collector.story(), std::string(Process::lostText) + " 30 ");
    Runtally::retryPendingInfo();
    collector.os.processes.start(10, "c:\\apps\\vim.exe");
    collector.poll();
    ASSERT_TRUE(collector.tracked().contains(10));
    EXPECT_EQ(collector.tracked().at(10)->getExecutable(), "c:\\apps\\vim.exe");
}

TEST(RegistryOfManyTest, AStopEventThatMeetsASlice) {
    using Case = std::tuple<const char*, const char*, bool, size_t, const char*>;
    for (const auto& [what, endOf, runs, tracked, records] :
         {Case{"its own", cad, false, 0, "cad.exe 40 "},
          Case{"another program's", "c:\\other.exe", false, 1, "cad.exe 60 "},
          Case{"of one that runs", cad, true, 1, "cad.exe 60 "}}) {
        Collector fresh;
        const int32_t start = fresh.os.clock.now();
        const ProcessPointer stopEvent = endReport(fresh, 7, endOf, start + 40);
        fresh.start(7, cad);
        Runtally::addProcessToEndedProcessMap(stopEvent);
        fresh.os.clock.advance(60);
        if (!runs)
            fresh.os.processes.end(7, 0);
        Runtally::dumpAll();
        EXPECT_EQ(fresh.tracked().size(), tracked) << what;
        EXPECT_TRUE(runtallyState().registry.endedProcessMap.empty()) << what;
        EXPECT_EQ(fresh.story(), records) << what;
    }
}

} // namespace Velmor
