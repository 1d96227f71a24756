// The collector with scripted process events.

#include "collector/CollectorFixture.h"

#include "platform/MessageQueues.h"
#include "platform/Threads.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"

namespace Velmor {

namespace {
constexpr uint8_t start = 1;
constexpr uint8_t end = 2;

struct TracingCollector : Collector {
    TracingCollector() {
        os.eventSchema.describeProcesses();
        runtallyState().settings.eventsActive = 1;
        runtallyState().programStart = now();
    }
};

class EventTracerTest : public ::testing::Test {
protected:
    int32_t now() { return collector.now(); }
    ScriptedEvent event(uint8_t type, uint32_t pid, const std::string& image, int32_t seconds) {
        return {type, 2, seconds, processPayload(pid, image)};
    }
    void take(uint8_t type, uint32_t pid, const std::string& image, int32_t seconds) {
        event(type, pid, image, seconds).handOver(processCallback);
    }
    uint32_t runThread() {
        ThreadRecord record("EventTracer", 0);
        return eventTracer(&record);
    }
    static RuntallySettings& settings() { return runtallyState().settings; }
    size_t stopEvents() { return runtallyState().registry.endedProcessMap.size(); }

    TracingCollector collector;
};
} // namespace

TEST_F(EventTracerTest, AStartAndAnEndMakeOneRecordDatedByTheEventsInWhateverOrderTheyCome) {
    constexpr uint8_t ignored = 0; // a start of no interest, whose end nobody waits for
    using Events = std::vector<std::tuple<uint8_t, const char*, int32_t>>; // with their seconds
    using Story = std::tuple<const char*, Events, const char*, size_t>;
    for (const auto& [what, events, records, left] : {
             Story{"in order", {{start, "cad", -20}, {end, "cad", -5}}, "cad 15 ", 0},
             Story{"in the second of its start", {{end, "cad", -20}, {start, "cad", -20}}, "cad 0 ", 0},
             Story{"an end before it", {{end, "cad", -21}, {start, "cad", -20}, {end, "cad", 0}}, "cad 20 ", 0},
             Story{"another program's end", {{end, "x", -10}, {start, "cad", -20}}, "", 0},
             Story{"two ends first", {{end, "cad", -5}, {end, "cad", -1}, {start, "cad", -20}}, "cad 15 ", 0},
             Story{"a second start", {{start, "cad", -20}, {start, "cad", -10}, {end, "cad", 0}}, "cad 20 ", 0},
             Story{"another's end", {{end, "x", -40}, {start, "cad", -30}, {end, "cad", 0}}, "cad 30 ", 0},
             Story{"an ignored one", {{ignored, "x", 0}, {end, "x", -50}}, "", 0},
             Story{"an id that one had",
                   {{ignored, "x", 0}, {start, "cad", -3}, {end, "cad", 0}, {end, "cad", 0}},
                   "cad 3 ",
                   1},
         }) {
        TracingCollector fresh;
        for (const auto& [type, image, seconds] : events)
            type == ignored ? noteIgnoredStart(40) : take(type, 40, image, now() + seconds);
        EXPECT_EQ(fresh.story(), records) << what;
        EXPECT_EQ(stopEvents(), left) << what;
        EXPECT_TRUE(fresh.tracked().empty()) << what;
    }
}

TEST_F(EventTracerTest, TheThreadEntersWhatRunsAndReadsUntilTheSessionEnds) {
    const CapturedLog log(5);
    for (uint32_t pid = 10; pid < 1000; ++pid)
        collector.os.processes.start(pid, "c:\\apps\\cad.exe");
    collector.os.clock.advance(60);
    collector.os.processes.start(2000, "c:\\apps\\new.exe");
    ScriptedTrace& trace = collector.os.kernelTrace;
    trace.events = {event(start, 2000, "new.exe", now()), event(end, 10, "cad.exe", now()),
                    event(3, 11, "cad.exe", now()), event(9, 11, "cad.exe", now())};
    EXPECT_EQ(runThread(), 0U);
    EXPECT_EQ(collector.tracked().size(), 990U);
    EXPECT_EQ(collector.story(), "cad.exe 60 ") << "counted from the collector's start";
    EXPECT_EQ(trace.calls, "start NT Kernel Logger;close;stop;");
    EXPECT_EQ(trace.started.enableFlags, 1U);
    EXPECT_EQ(trace.started.clientContext, 2U);
    EXPECT_TRUE(log.has("Type=EVENT_TRACE_TYPE_DC_START"));
    EXPECT_TRUE(log.has("Type=unknown"));
    EXPECT_TRUE(log.has("END THREAD EventTracer"));
    EXPECT_FALSE(tracerState().tracer);
}

TEST_F(EventTracerTest, WhatALaterTracerEntersIsDatedByTheLastLook) {
    settings().eventsActive = 0;
    collector.os.processes.start(40, "c:\\apps\\old.exe");
    collector.poll();
    collector.os.clock.advance(10);
    const int32_t poll = now();
    collector.poll();
    collector.os.processes.start(41, "c:\\apps\\refused.exe").openError = NativeError::accessDenied;
    settings().eventsActive = 1;
    runtallyState().polledOnce = false;
    for (const bool ended : {false, true}) { // by a new configuration, and after an ended session
        collector.os.clock.advance(20);
        const uint32_t pid = ended ? 43 : 42;
        collector.os.processes.start(pid, "c:\\apps\\late.exe");
        collector.os.processes.end(ended ? 42 : 40, 3);
        collector.os.clock.advance(5);
        runThread();
        EXPECT_EQ(collector.tracked().at(pid)->getStart().getSeconds(), now() - 5);
        ASSERT_EQ(collector.records().size(), ended ? 2U : 1U) << "what ended meanwhile";
        EXPECT_EQ(collector.records().back().exitCode, "3");
    }
    EXPECT_EQ(collector.tracked().at(41)->getStart().getSeconds(), poll) << "the earliest that may be";
}

TEST_F(EventTracerTest, ATracerThatIsToldToEndTakesWhatWaitsAndLeavesTheSessionToTheNext) {
    ScriptedTrace& trace = collector.os.kernelTrace;
    trace.endsWhenRead = false;
    for (size_t i = 1; i < 3; ++i) {
        uint32_t message = 0;
        platform().messageQueues->peek(message); // this thread has a queue from now on
        platform().messageQueues->post(platform().threads->currentId(), WindowMessage::destroy);
        trace.events = {event(start, 40, "c:\\apps\\cad.exe", now()), event(end, 40, "", now())};
        EXPECT_EQ(runThread(), 0U);
        EXPECT_EQ(collector.records().size(), i);
        EXPECT_TRUE(tracerState().tracer && trace.runs);
    }
    trace.events.push_back(event(start, 41, "c:\\apps\\cad.exe", now()));
    endTracing();
    EXPECT_TRUE(collector.tracked().contains(41)) << "what had come when the session was given up";
    EXPECT_FALSE(trace.runs);
}

TEST_F(EventTracerTest, WhatWasGoneWhenItWasToBeEnteredIsEndedOrNamedByItsStart) {
    using Case = std::tuple<const char*, bool, bool, const char*>;
    for (const auto& [what, isPolled, isWatched, records] :
         {Case{"events alone", false, false, "<<lost>> 0 cad.exe 0 "},
          Case{"a poll before the session", true, false, "<<lost>> 1 cad.exe 0 "},
          Case{"a poll behind it", true, true, "cad.exe 0 "}}) {
        TracingCollector fresh;
        settings().pollingOn = isPolled;
        fresh.os.processes.start(40, "c:\\apps\\gone.exe").openError = NativeError::invalidParameter;
        tracerState().hasSession = isWatched;
        if (isPolled)
            fresh.poll();
        runtallyState().polledOnce = false; // the tracer's thread began before
        fresh.os.kernelTrace.events = {event(start, 40, "c:\\apps\\cad.exe", now()), event(end, 40, "", now())};
        runThread();
        EXPECT_TRUE(fresh.tracked().empty()) << what;
        EXPECT_EQ(fresh.story(), records) << what;
    }
}

TEST_F(EventTracerTest, AStaleSessionIsStoppedFirst) {
    collector.os.kernelTrace.runs = true;
    const uint32_t before = collector.os.clock.ticks();
    EXPECT_EQ(runThread(), 0U);
    EXPECT_EQ(collector.os.kernelTrace.calls, "stop;start NT Kernel Logger;close;stop;");
    EXPECT_EQ(collector.os.clock.ticks() - before, 100U);
}

TEST_F(EventTracerTest, ASessionThatFailsSaysWhyAndOneThatCannotBeStartedEndsTheProgram) {
    using Case = std::tuple<uint32_t, uint32_t, bool, int32_t, const char*>; // stale: and can't be stopped
    for (const auto& [startResult, reading, isStale, quits, text] :
         {Case{24, 0, false, 1, "Bad Length"}, Case{87, 0, false, 1, "Invalid Parameter"},
          Case{183, 0, false, 1, "Already Exists"}, Case{5, 0, false, 1, "The right is missing."},
          Case{0, 0, true, 1, "Failed to stop the logger. Error code: 5"}, Case{0, 1223, false, 0, ""},
          Case{0, 998, false, 0, "CRITICAL"}, Case{0, 1168, false, 0, "1168"}}) {
        const CapturedLog log(3);
        ScriptedTrace& trace = collector.os.kernelTrace;
        programState().quitFlag = 0;
        trace.startResult = startResult;
        trace.processResult = reading;
        trace.runs = isStale;
        trace.isStoppable = !isStale;
        trace.lacking = "The right is missing.";
        EXPECT_EQ(runThread(), static_cast<uint32_t>(-quits)) << text;
        EXPECT_EQ(programState().quitFlag, quits) << text;
        EXPECT_TRUE(log.has(text)) << log.text();
        EXPECT_EQ(log.has("CRITICAL") || quits == 1, *text != '\0') << log.text();
        tracerState().tracer.reset();
    }
}

TEST_F(EventTracerTest, LostEventsAreReportedAtOnceAndThenOnceAMinute) {
    const CapturedLog log(0);
    using Case = std::tuple<uint64_t, int32_t, size_t>;
    for (const auto& [lost, secondsLater, messages] :
         {Case{0, 0, 0}, Case{7, 1, 1}, Case{9, 30, 1}, Case{9, 31, 2}, Case{9, 100, 2}, Case{10, 1, 3}}) {
        collector.os.clock.advance(secondsLater);
        collector.os.kernelTrace.eventsLost = lost;
        collector.os.kernelTrace.namesLost = 2 * lost;
        collector.os.kernelTrace.events = {event(3, 1, "", 0)};
        runThread();
        EXPECT_EQ(log.count("(2.08.41)"), messages) << lost << " after " << secondsLater;
        EXPECT_EQ(log.count("(2.08.50)"), messages);
    }
}

TEST_F(EventTracerTest, ThePollerWaitsForTheSessionButNotForEver) {
    for (const uint32_t comesAfter : {1000U, 60000U}) {
        TracingCollector fresh;
        settings().pollingOn = true;
        tracerState().hasSession = false;
        ThreadRecord record("ProcessPoller", ThreadRecord::takesPart);
        const uint32_t begin = fresh.os.clock.ticks();
        uint32_t polledAt = 0;
        fresh.os.clock.onSleep = [&] {
            const uint32_t passed = fresh.os.clock.ticks() - begin;
            tracerState().hasSession = passed >= comesAfter;
            if (runtallyState().polledOnce) {
                polledAt = passed;
                record.report = Report::stop;
            }
        };
        EXPECT_EQ(processPoller(&record), 0U);
        EXPECT_NEAR(polledAt, std::min(comesAfter, 30000U), 100);
    }
}

TEST_F(EventTracerTest, AtTheEndOfTheProgramNothingIsTakenAnyMore) {
    const CapturedLog log(5);
    programState().quitFlag = 1;
    take(start, 40, "c:\\apps\\cad.exe", now());
    EXPECT_TRUE(collector.tracked().empty());
    EXPECT_EQ(log.text().find("callback"), std::string::npos);
}

TEST_F(EventTracerTest, CompletingRoundsNameWhatTheEventsCouldNot) {
    collector.os.processes.canEnumerate = false;
    collector.poll();
    collector.os.processes.canEnumerate = true;
    collector.os.processes.start(40, "c:\\apps\\cad.exe");
    collector.poll();
    EXPECT_TRUE(collector.tracked().contains(40)) << "a first round that failed is made up for";
    Runtally::addProcess(ProcessPointer(new Process(41, now(), Process::Mode::ended, true)));
    collector.os.processes.start(41, "c:\\apps\\late.exe");
    collector.os.processes.start(50, "c:\\apps\\new.exe");
    collector.poll();
    EXPECT_EQ(collector.tracked().at(41)->getExecutable(), "c:\\apps\\late.exe");
    EXPECT_EQ(collector.tracked().at(41)->getApplication(), "late");
    EXPECT_FALSE(collector.tracked().contains(50)) << "starts come from the events alone";
}

} // namespace Velmor
