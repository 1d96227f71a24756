// The collector's own keys: what they default to, what they turn on, and what keeps it from starting.

#include "collector/CollectorFixture.h"

#include "support/DataFiles.h"
#include "support/RuntimeFixture.h"

#include <filesystem>

namespace Velmor {

namespace {
class ConfigurationTest : public RuntimeFixture {
protected:
    ConfigurationTest() {
        os.registry.set("ConfigurationDir", directory.path());
        os.registry.set("InstallDir", directory.path());
        os.registry.set("StartupLogDir", directory.path());
        os.registry.setNumber("StartupDebugLevel", 0);
    }
    ~ConfigurationTest() override { resetRuntallyState(); }

    /// A configuration with these entries below "runtally".
    void write(const std::string& entries) const {
        directory.write("runtally.conf", "Velmor () = \"\" { directories () = \"\" { temp (DirName) = \"" +
                                             directory.path() + "\" { } conf (DirName) = \"" + directory.path() +
                                             "\" { } } }\nruntally () = \"\" { " + entries + " }\n");
    }

    /// Configures a collector with them; false if it can't start.
    bool configure(const std::string& entries) {
        write(entries);
        resetRuntallyState();
        programState().quitFlag = 0;
        Runtally collector("dummy");
        return collector.configure();
    }

    static RuntallySettings& settings() { return runtallyState().settings; }

    ScriptedPlatform os;
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
    struct Case {
        const char* what;
        std::string entries;
        std::string rules;
        const char* mappings;
        const char* applications; // of all records until then
    };
    for (const auto& [what, entries, rules, mappings, applications] : {
             Case{"nothing new", withRules + polled, "include datatype=*\n", "", ""},
             Case{"a mapping", withRules + polled, "include datatype=*\n", "mapalways\n{\ncad = Drawing\n}\n", "cad "},
             Case{"a rule", withRules + polled, "exclude exe=*\n", "mapalways\n{\ncad = Drawing\n}\n", "cad Drawing "},
             Case{"another rule", withRules + polled, "include datatype=*\n", "", "cad Drawing "},
             Case{"the key has gone, and its value stays", withRules, "include datatype=*\n", "", "cad Drawing "},
             Case{"no source any more",
                  withRules + std::string(polled).replace(std::string(polled).find("true"), 4, "false"),
                  "include datatype=*\n", "", "cad Drawing cad "},
         }) {
        os.clock.advance(3);
        directory.write("rules", rules);
        directory.write("components/appmapping.conf", mappings);
        write(entries);
        EXPECT_TRUE(collector.reconfigure()) << what;
        EXPECT_TRUE(collector.stopAndVerify());
        std::string written;
        for (const UsageLine& record : parseRecords(dataText(directory / "data", "ProcessLog")))
            written += record.application + " ";
        EXPECT_EQ(written, applications) << what;
    }
    EXPECT_TRUE(runtallyState().registry.processMap.empty());
    const auto records = parseRecords(dataText(directory / "data", "ProcessLog"));
    EXPECT_EQ(records[0].start, start);
    EXPECT_EQ(records[1].start, records[0].end()) << "slices touch";
    const std::string log = readFile(directory / "RuntallyDebug.log");
    EXPECT_NE(log.find("polling"), std::string::npos);
    EXPECT_NE(log.find("(2.08.47)"), std::string::npos);
    EXPECT_NE(log.find("(2.08.48)"), std::string::npos);
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
    struct Case {
        const char* entries;
        const char* cause;
    };
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
