#pragma once

#include "process/ProcPoll.h"
#include "process/Process.h"
#include "process/naming/ExeFinder.h"
#include "programs/collectors/agent/Win32/Runtally/PerformanceState.h"
#include "programs/collectors/agent/Win32/Runtally/ProcessEventLog.h"
#include "rules/IncludeExclude.h"
#include "rules/ModPollFilterChecker.h"
#include "rules/ProcessRulesChecker.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/logger/Logger.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Velmor {

using ProcessMap = std::map<uint32_t, ProcessPointer>;

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
    std::atomic<int32_t> eventsActive{0}; // 1: the kernel event tracer is in use
    bool performanceMonitoring = false;
    TimeSpan performancePollInterval;
    TimeSpan performanceDeliveryInterval;
    std::string countersFile;
    std::string performanceRulesFile;
};

/// The collector's memory of what runs. Order of taking: `processMonopoly`, then the lock of another map.
struct ProcessRegistry {
    ProcessMap processMap;                  // named and tracked; under processMonopoly, with every process in it
    ProcessMap endedProcessMap;             // ends that came before their starts; under endedMapMonopoly
    ProcessMap pendingInfoMap;              // started, but without a name yet; under pendingInfoMonopoly
    Monopoly processMonopoly;               // taken with a time limit, through enforceMonopoly
    Monopoly endedMapMonopoly;              // held for a map operation only
    Monopoly pendingInfoMonopoly;           // held for a map operation, or for a retry round
    std::atomic<int32_t> monitoredCount{0}; // monitored entries of processMap; written under processMonopoly
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
    ProcPoll procPoll; // used by the poller's thread only
    std::unique_ptr<ExeFinder> exeFinder;
    ProcessEventLog eventLog;
    std::atomic<bool> polledOnce{false};    // the first full round has been made; stays set
    std::atomic<bool> eventsDropped{false}; // by a new configuration: the poller is to find what ended meanwhile
    int32_t programStart = 0;               // seconds since 1970
};

RuntallyState& runtallyState();

} // namespace Velmor
