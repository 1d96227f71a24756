#pragma once

#include "process/ProcPoll.h"
#include "process/Process.h"
#include "process/naming/ExeFinder.h"
#include "programs/collectors/agent/Win32/Runtally/state/PerformanceState.h"
#include "programs/collectors/agent/Win32/Runtally/state/PollChanges.h"
#include "programs/collectors/agent/Win32/Runtally/state/ProcessEventLog.h"
#include "programs/collectors/agent/Win32/Runtally/state/ProcessRegistry.h"
#include "rules/IncludeExclude.h"
#include "rules/ModPollFilterChecker.h"
#include "rules/ProcessRulesChecker.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/logger/Logger.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Velmor {

/// What the configuration says about the sources. Written while no worker runs, but for the atomic words.
struct RuntallySettings {
    bool pollingOn = false;
    TimeSpan pollInterval;
    bool eventLogOn = false;
    std::string eventLogStem;
    int32_t eventLogDays = 0;
    bool moduleLogging = false;
    TimeSpan modulePollInterval; // 0: no module poller
    std::string moduleFilterFile;
    bool eventsAskedFor = false;
    bool nativeEvents = false;
    std::atomic<int32_t> eventsActive{0}; // 1: the kernel event tracer is in use

    /// Whether news of processes come at all.
    bool hasSource() const { return pollingOn || eventsActive == 1; }
    bool performanceMonitoring = false;
    TimeSpan performancePollInterval;
    TimeSpan performanceDeliveryInterval;
    std::string countersFile;
    std::string metricsFile; // empty: none
    std::string performanceRulesFile;
};

/// All class-wide state of the collector, reached by thread functions and callbacks without an object.
struct RuntallyState {
    Logger logger;
    RuntallySettings settings;
    ProcessRegistry registry;
    IncludeExclude includeExclude;
    ProcessRulesChecker processRules;
    ModPollFilterChecker moduleFilter;
    PerformanceState performance;
    ProcPoll procPoll;             // this and the next by the poller's thread only
    PollChanges pollChanges;       // what the last poll found
    bool isShortOfHandles = false; // as has been told
    std::unique_ptr<ExeFinder> exeFinder;
    ProcessEventLog eventLog;
    std::atomic<bool> polledOnce{false};    // the first full round has been made; stays set
    std::atomic<bool> eventsDropped{false}; // by a new configuration: the poller is to find what ended meanwhile
    int32_t programStart = 0;               // seconds since 1970
    std::atomic<int32_t> lastLook{0};       // likewise: when a source last knew what runs; 0 before the first
};

RuntallyState& runtallyState();

/// Puts all of it back to what it is at the program's start, and the data files and the tracer with it. For tests and
/// benchmarks; no worker runs.
void resetRuntallyState();

} // namespace Velmor
