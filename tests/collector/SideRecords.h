#pragma once

#include "collector/CollectorFixture.h"

#include "programs/collectors/agent/Win32/Runtally/ModulePoller.h"
#include "programs/collectors/agent/Win32/Runtally/PerformanceMonitor.h"
#include "programs/collectors/agent/Win32/Runtally/PerformanceRecord.h"

#include <string>
#include <vector>

namespace Velmor {

/// A collector that records modules and performance beside usage.
class SideRecordsTest : public ::testing::Test {
protected:
    SideRecordsTest();
    ~SideRecordsTest() override;

    /// The lines of all data files of a stem, delivered or not, in the order of the files.
    std::vector<std::string> lines(const std::string& stem) const;
    /// Reads a counters file, and watches the executables of these names.
    void monitor(const std::string& counters, const std::string& names = "*");
    /// Loads other rules for records.
    void useRules(const std::string& rules);
    ProcessPointer start(uint32_t pid, const std::string& path);
    void end(uint32_t pid, uint32_t exitCode);
    Process& tracked(uint32_t pid) { return *collector.tracked().at(pid); }
    ScriptedPlatform& os() { return collector.os; }

    Collector collector;
};

} // namespace Velmor
