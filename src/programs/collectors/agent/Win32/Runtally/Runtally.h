#pragma once

#include "programs/collectors/agent/Win32/Agent.h"
#include "programs/collectors/agent/Win32/IpcCommands.h"
#include "programs/collectors/agent/Win32/Runtally/status/MetricsFile.h"
#include "programs/collectors/agent/Win32/Runtally/status/StatusReport.h"
#include "programs/collectors/agent/Win32/Runtally/tracking/ProcessTracking.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// The collector of application usage. Its operations on processes are class-wide, for thread functions and callbacks;
/// their state is `RuntallyState`.
class Runtally : public Agent, public ProcessTracking {
public:
    explicit Runtally(std::string_view commandLine);
    ~Runtally() override;

    void run() override;
    /// Whether a thread that couldn't be ended works on, so that nothing may be taken apart.
    bool isInUse() const;
    bool reconfigure() override;
    bool configureCollector() override;
    bool acceptsConfiguration(const ConfReader& fresh, std::string& problem) const override;
    Findings check(bool withRights) const override;
    bool judgesOtherwise(const ConfReader& fresh) const override { return judgement(fresh) != judgement_; }
    void awaitWorkers() override;
    void supervisionRound() override;
    std::string statusSentence() override;
    StatusReport status() const;
    void publishFigures() override;

private:
    size_t judgement(const ConfReader& configuration) const;
    void noteConfiguration();
    bool prepareDirectories();
    void readIntervals();
    bool readSwitch(std::string_view key, bool& value) const;
    void readPolling();
    void readEventLog();
    void readModules();
    void readEvents();
    void chooseEvents();
    void readPerformance();
    void readMetrics();
    void readInterval(std::string_view key, TimeSpan& span, const TimeSpan& otherwise) const;
    bool prepareExeFinder();
    void loadApplicationMappings();
    bool loadRules();
    bool prepareThreads();
    bool prepareProcessPoller();
    bool prepareModulePoller();
    bool preparePerformanceMonitor();
    bool prepareEventTracer();
    void registerDataFiles();

    void enableDebugPrivilege();
    bool startStatusMonitor();
    void awaitStatusMonitor();
    static void runMessageLoop();

    IpcCommands commands_;
    MetricsFile metrics_;
    std::string missingRights_; // as the system told at the start
    ConfigurationInForce configuration_;
    size_t judgement_ = 0; // of the configuration in force
    ThreadHandle statusMonitor_;
    uint32_t statusMonitorId_ = 0;
    std::string processStem_; // names of the data files
    std::string moduleStem_;
    std::string performanceStem_;
};

} // namespace Velmor
