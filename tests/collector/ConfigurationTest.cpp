// The collector's own keys: what they default to, what they turn on, and what keeps it from starting.

#include "collector/CollectorFixture.h"

#include "support/DataFiles.h"

#include <algorithm>
#include <cstring>

namespace Velmor {

namespace {
class ConfigurationTest : public StartFixture {
protected:
    /// A configuration with these entries below "runtally".
    void writeOwn(const std::string& entries) const { write("runtally () = \"\" { " + entries + " }\n"); }

    /// Configures a collector with them; false if it can't start.
    bool configure(const std::string& entries) {
        writeOwn(entries);
        resetRuntallyState();
        Runtally collector("dummy");
        return collector.configure();
    }
    static RuntallySettings& settings() { return runtallyState().settings; }
};
constexpr const char* polled = "logging () = \"\" { process-data () = \"\" { polling (Bool) = true { } } }";

} // namespace

TEST_F(ConfigurationTest, ANewConfigurationJudgesAndNamesWhatComesBehindIt) {
    const std::string withRules = "include-exclude (FileName) = \"${Velmor.directories.temp}rules\" { } working-dir "
                                  "(DirName) = \"${Velmor.directories.temp}data\" { } ";
    directory.write("rules", "include datatype=*\n");
    std::filesystem::create_directory(directory / "components");
    directory.write("components/appmapping.conf", "");
    ASSERT_TRUE(configure(withRules + polled));
    os.clock.keepStep(); // the workers' sleeps would make hours pass
    Runtally collector("dummy");
    ASSERT_TRUE(collector.configure());
    os.processes.start(7, "/usr/bin/cad");
    procPoll();
    const int32_t start = runtallyState().registry.processMap.at(7)->getStart().getSeconds();
    using Case = std::tuple<const char*, std::string, const char*, const char*, const char*>; // the last: all records
    for (const auto& [what, entries, rules, mappings, applications] : {
             Case{"nothing new", withRules + polled, "include datatype=*\n", "", ""},
             Case{"a mapping", withRules + polled, "include datatype=*\n", "mapalways\n{\ncad = Drawing\n}\n", "cad "},
             Case{"a rule", withRules + polled, "exclude exe=*cad\ninclude datatype=*\n",
                  "mapalways\n{\ncad = Drawing\n}\n", "cad Drawing "},
             Case{"another rule", withRules + polled, "include datatype=*\n", "", "cad Drawing "},
             Case{"the key has gone, and its value stays", withRules, "include datatype=*\n", "", "cad Drawing "},
         }) {
        os.clock.advance(3);
        directory.write("rules", rules);
        directory.write("components/appmapping.conf", mappings);
        writeOwn(entries);
        EXPECT_TRUE(collector.reconfigure()) << what;
        EXPECT_TRUE(collector.stopAndVerify());
        std::string written;
        for (const UsageLine& record : parseRecords(dataText(directory / "data", "ProcessLog")))
            written += record.application + " ";
        EXPECT_EQ(written, applications) << what;
    }
    const auto records = parseRecords(dataText(directory / "data", "ProcessLog"));
    EXPECT_EQ(records[0].start, start);
    EXPECT_EQ(records[1].start, records[0].end()) << "slices touch";
    for (const char* part : {"polling", "(2.08.47)"})
        EXPECT_NE(log().find(part), std::string::npos);
    const std::string off = std::string(polled).replace(std::string(polled).find("true"), 4, "false");
    for (const auto& [entries, refusedRules, cause] : {
             std::tuple{withRules + polled, "include exe=*\nnonsense\n", "line 2"},
             std::tuple{withRules + polled, "exclude exe=*\n", "no rule can include a record"},
             std::tuple{withRules + off, "include exe=*\n", "no source of processes is on"},
             std::tuple{withRules + polled + " } }", "include exe=*\n", "ends the reading"},
             std::tuple{withRules + "logging () = '' { process-data () = '' {", "include exe=*\n", "never closes"},
         }) {
        directory.write("rules", refusedRules);
        writeOwn(entries);
        EXPECT_FALSE(collector.reconfigure()) << cause;
        EXPECT_NE(log().find(cause), std::string::npos) << cause;
    }
    EXPECT_EQ(runtallyState().registry.processMap.size(), 1U) << "as before";
    EXPECT_TRUE(runtallyState().includeExclude.isIncluded(RuleFacts(RuleKey::datatype, "process"))) << "as before";
}

TEST_F(ConfigurationTest, EachKeyHasItsDefaultAndIsRead) {
    for (const char* name : {"Runtally_Counters.conf", "c"})
        directory.write(name, "Elapsed Time|abs\n");
    for (const char* name : {"Runtally_ProcessRules.conf", "runtally_modpoller.conf", "r", "f"})
        directory.write(name, "+ host=*\n*\n");
    const auto entries = [](const char* delivery, const char* span, const std::string& more, const std::string& files) {
        const std::string interval = *span ? std::string("interval (TimeSpan) = ") + span + " { } " : "";
        return std::string(delivery) + more + "logging () = '' { process-data () = '' { polling (Bool) = true { " +
               interval + "} log-to-file (Bool) = true { " + (*span ? "delete-after-days (Integer) = 3 { }" : "") +
               " } } performance-monitor (Bool) = true { " + interval + files + "} module-data (Bool) = true { " +
               interval + "} }";
    };
    const std::string& home = directory.path();
    const auto inForce = [&] {
        const RuntallySettings& s = settings();
        std::string text = programState().dataDirectory + " " + s.countersFile + " " + s.performanceRulesFile + " ";
        for (const TimeSpan& span : {programState().defaultInterval, s.performanceDeliveryInterval, s.pollInterval,
                                     s.performancePollInterval, s.modulePollInterval})
            text += span.toString() + " ";
        std::replace(text.begin(), text.end(), '\\', '/');
        for (size_t place = text.find(home); place != std::string::npos; place = text.find(home))
            text.replace(place, home.size(), "@");
        return text + std::to_string(s.eventLogDays);
    };
    ASSERT_TRUE(configure(""));
    EXPECT_FALSE(settings().pollingOn || settings().eventLogOn || settings().moduleLogging ||
                 settings().performanceMonitoring || settings().eventsActive);
    constexpr const char* defaults = "@Log/temp/Runtally/ @Runtally_Counters.conf @Runtally_ProcessRules.conf ";
    ASSERT_TRUE(configure(entries("", "", "", "")));
    EXPECT_EQ(inForce(), defaults + std::string("P12H P1H P5M P5S P0 7"));
    ASSERT_TRUE(configure(
        entries("interval (TimeSpan) = P-1H { performance-monitor (TimeSpan) = P24856D { } }", "P0", "", "")));
    EXPECT_EQ(inForce(), defaults + std::string("P12H P1H P5M P5S P0 3")) << "intervals that are none";
    ASSERT_TRUE(configure(entries("interval (TimeSpan) = P2H { performance-monitor (TimeSpan) = P3H { } }", "P4S",
                                  "working-dir (DirName) = '" + home + "d' { } ",
                                  "counters (FileName) = '" + home + "c' { } rules (FileName) = '" + home + "r' { }")));
    EXPECT_EQ(inForce(), "@d/ @c @r P2H P3H P4S P4S P4S 3");
}

TEST_F(ConfigurationTest, TheExamplesAreLoadedWithoutAMessage) {
    std::filesystem::copy(VELMOR_SOURCES "/examples/etc/velmor", directory.path(),
                          std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
    std::string text = readFile(directory / "runtally.conf");
    for (const char* place : {"/etc/velmor", "/var/lib/velmor"})
        text.replace(text.find(place), std::strlen(place), directory.path());
    for (size_t off = text.find("(Bool) = false"); off != std::string::npos; off = text.find("(Bool) = false"))
        text.replace(off, 14, "(Bool) = true");
    directory.write("runtally.conf", text);
    Runtally collector("dummy");
    EXPECT_TRUE(collector.configure()) << programState().startupFailure;
    EXPECT_EQ(programState().startupFailure, "");
    const std::string said = log() + readFile(directory / "log/RuntallyDebug.log");
    for (const char* severity : {"WARNING", "ERROR", "CRITICAL", "FATAL"})
        EXPECT_EQ(said.find(severity), std::string::npos) << said;
    EXPECT_TRUE(runtallyState().includeExclude.isIncluded(RuleFacts(RuleKey::datatype, "process")));
}

TEST_F(ConfigurationTest, AStartTellsTheFirstFindingsOfTheCheckAndTheNumberOfTheOthers) {
    std::string entries;
    for (int i = 0; i < 30; ++i)
        entries += "key" + std::to_string(i) + " (Integer) = 1 { }\n";
    EXPECT_TRUE(configure(entries)) << "which all are passed over";
    size_t told = 0;
    for (const std::string& line : linesOf(log()))
        told += line.find("(2.21.37)") != std::string::npos ? 1 : 0;
    EXPECT_EQ(told, 20U);
    EXPECT_NE(log().find("runtally.conf:3: warning: nothing reads the key \"runtally.key1\""), std::string::npos);
    EXPECT_NE(log().find("(2.21.38)"), std::string::npos);
}

TEST_F(ConfigurationTest, EventsThatAreGivenUpLeaveWhatEndedMeanwhileToThePoller) {
    for (const int32_t wereActive : {0, 1}) {
        resetRuntallyState();
        settings().eventsActive = wereActive;
        writeOwn(polled);
        EXPECT_TRUE(Runtally("dummy").configure());
        EXPECT_EQ(settings().eventsActive, 0);
        EXPECT_EQ(runtallyState().eventsDropped, wereActive == 1);
    }
}

TEST_F(ConfigurationTest, ASystemWithoutEventsIsPolledInTheirPlace) {
    constexpr const char* events = "logging () = \"\" { process-data () = \"\" { events (Bool) = true { } "
                                   "polling (Bool) = false { interval (TimeSpan) = P1M { } } } }";
    os.machine.version.name = "AGENT Linux 12"; // not the NT that is meant
    EXPECT_TRUE(configure(events));
    EXPECT_FALSE(settings().pollingOn);
    os.machine.version.name.clear();
    os.machine.version.major = 4;
    EXPECT_TRUE(configure(events));
    EXPECT_TRUE(settings().pollingOn);
}

TEST_F(ConfigurationTest, WhatCantBeReadOrMadeKeepsItFromStarting) {
    using Case = std::tuple<const char*, const char*>;
    directory.write("file", "x");
    directory.write("rules", "include\n{\nuser=a\n");
    directory.write("filter", "");
    for (const auto& [entries, cause] : {
             Case{"working-dir (DirName) = \"${Velmor.directories.temp}file/data\" { }", "working directory"},
             Case{"include-exclude (FileName) = \"${Velmor.directories.temp}none\" { }", "File not accessible"},
             Case{"include-exclude (FileName) = \"${Velmor.directories.temp}rules\" { }", "after line 3"},
             Case{"logging () = \"\" { module-data (Bool) = true { interval (TimeSpan) = P1S { "
                  "filter (FileName) = \"${Velmor.directories.temp}filter\" { } } } }",
                  "module filter"},
             Case{"logging () = \"\" { performance-monitor (Bool) = true { } }", "Runtally_Counters.conf"},
         }) {
        EXPECT_FALSE(configure(entries)) << entries;
        EXPECT_NE(programState().startupFailure.find(cause), std::string::npos) << programState().startupFailure;
    }
}

} // namespace Velmor
