// The collector's own keys: what they default to, what they turn on, and what keeps it from starting.

#include "collector/CollectorFixture.h"

#include "support/RuntimeFixture.h"

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

    /// Configures a collector with these entries below "runtally"; false if it can't start.
    bool configure(const std::string& entries) {
        directory.write("runtally.conf", "Velmor () = \"\" { directories () = \"\" { temp (DirName) = \"" +
                                             directory.path() + "\" { } } }\nruntally () = \"\" { " + entries + " }\n");
        resetRuntallyState();
        programState().quitFlag = 0;
        Runtally collector("dummy");
        return collector.configure();
    }

    static RuntallySettings& settings() { return runtallyState().settings; }

    ScriptedPlatform os;
};
} // namespace

TEST_F(ConfigurationTest, ASystemWithoutEventsIsPolledInTheirPlace) {
    constexpr const char* events = "logging () = \"\" { process-data () = \"\" { events (Bool) = true { } "
                                   "polling (Bool) = false { interval (TimeSpan) = P1M { } } } }";
    EXPECT_TRUE(configure(events));
    EXPECT_FALSE(settings().pollingOn);
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
