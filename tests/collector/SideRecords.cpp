#include "collector/SideRecords.h"

#include "support/DataFiles.h"

namespace Velmor {

SideRecordsTest::SideRecordsTest() {
    RuntallySettings& settings = runtallyState().settings;
    settings.moduleLogging = true;
    settings.performanceMonitoring = true;
    settings.performancePollInterval = TimeSpan(5);
    settings.modulePollInterval = TimeSpan(30);
    registerLogFile(collector.directory / "ModuleLog", "module", TimeSpan(), false, nullptr);
    registerLogFile(collector.directory / "PerfMonLog", "perfmon", TimeSpan(3600), true, dumpPerfMon);
}

SideRecordsTest::~SideRecordsTest() {
    RuntallyState& state = runtallyState();
    state.settings.moduleLogging = false;
    state.settings.performanceMonitoring = false;
    state.moduleFilter.clear();
    state.processRules.clear();
    state.performance = {};
}

std::vector<std::string> SideRecordsTest::lines(const std::string& stem) const {
    return dataLines(collector.directory.path(), stem);
}

void SideRecordsTest::monitor(const std::string& counters, const std::string& names) {
    const TempDirectory files;
    ASSERT_TRUE(readCountersFile(files.write("counters", counters)));
    ASSERT_TRUE(runtallyState().processRules.readFile(files.write("rules", "+ host=*\n" + names + "\n")));
}

void SideRecordsTest::useRules(const std::string& rules) {
    const TempDirectory files;
    std::string error;
    runtallyState().includeExclude.clear();
    ASSERT_TRUE(runtallyState().includeExclude.load(files.write("rules", rules), error)) << error;
}

ProcessPointer SideRecordsTest::start(uint32_t pid, const std::string& path) {
    os().processes.start(pid, path);
    return collector.report(pid, ProcessState::started, os().clock.now());
}

void SideRecordsTest::end(uint32_t pid, uint32_t exitCode) {
    os().processes.end(pid, exitCode);
    collector.report(pid, ProcessState::ended, os().clock.now());
}

} // namespace Velmor
