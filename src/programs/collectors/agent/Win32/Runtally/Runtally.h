#pragma once

#include "process/Process.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "programs/collectors/agent/Win32/IpcCommands.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Velmor {

/// The collector of application usage. Its operations on processes are class-wide, for thread functions and callbacks;
/// their state is `RuntallyState`.
class Runtally : public Agent {
public:
    explicit Runtally(std::string_view commandLine);
    ~Runtally() override;

    void run() override;
    bool configureCollector() override;
    bool acceptsConfiguration(const ConfReader& fresh, std::string& problem) const override;
    void awaitWorkers() override;
    void supervisionRound() override { retryPendingInfo(); }

    // The registry.

    /// Takes the registry's lock within about five seconds; a lock that nobody owns and that can't be entered is reset.
    /// `name` says who asks, `retriedBy` is the thread that tries again after such a reset, else 0. On true the caller
    /// holds it once more than before.
    static bool enforceMonopoly(std::string_view name, uint32_t retriedBy);
    static void relaxMonopoly(std::string_view name);

    /// Takes a tracked process out. False: the lock could not be had. True with a process: the lock is held until
    /// `checkIn`. True without: there is none of that id, and nothing is held.
    static bool checkOut(uint32_t pid, ProcessPointer& process);
    static void checkIn(ProcessPointer& process);
    /// The same for the whole map.
    static bool checkOutAll();
    static void checkInAll();

    /// Tracks a process. One whose end has been reported already gets its record at once, and isn't tracked. False if
    /// the lock could not be had.
    static bool addProcess(const ProcessPointer& process);
    /// False if the lock could not be had; true also if there was none of that id.
    static bool removeProcess(uint32_t pid);
    /// The end that waits for its start, or null.
    static ProcessPointer findStopEvent(uint32_t pid);
    /// The caller holds the lock of the map.
    static bool addProcessToEndedProcessMap(const ProcessPointer& process);
    static bool removeProcessFromEndedProcessMap(uint32_t pid);

    /// Passes news of a process on by its state: started, ended, or in use.
    static void logProcess(const ProcessPointer& process);

    /// Frees what a lost thread held.
    static void freeLocksOf(uint32_t threadId);

    // The life of a process.

    /// Turns a start into a tracked entry; writes no record.
    static void logStartProcess(const ProcessPointer& process);
    /// Tries again to name the processes that had no name yet.
    static void retryPendingInfo();
    /// Has a process that waits for its name, and that has ended, tracked under what can be said of it, so that its end
    /// finds it. Nothing happens if none of that id waits.
    static void admitPending(uint32_t pid);
    /// Writes the last records of a process and gives it up. An end without a start waits for it.
    static void logEndProcess(const ProcessPointer& report);
    /// Ends now each tracked process of which `isGone` is true. False if the lock could not be had; nothing is ended
    /// then.
    static bool endGone(const std::function<bool(const Process&)>& isGone);
    /// Writes a slice of a process that runs on.
    static void logProcessUsage(const ProcessPointer& report);
    /// Gives each tracked process a slice that ends now; the next one begins at the same second.
    static void dumpAll();

    // Records.

    /// Writes the usage record of a process, if the rules want it.
    static void logProcessData(const ProcessPointer& process);

    // Polling.

    /// One round of the process poller.
    static void procPoll();

    /// A configured interval; false if there is none above 0 seconds.
    bool getConfInterval(std::string_view key, TimeSpan& span) const;

private:
    bool prepareDirectories();
    void readIntervals();
    bool isOn(std::string_view key) const;
    void readPolling();
    void readEventLog();
    void readModules();
    void readEvents();
    void chooseEvents();
    void readPerformance();
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
    ThreadHandle statusMonitor_;
    uint32_t statusMonitorId_ = 0;
    std::string processStem_; // names of the data files
    std::string moduleStem_;
    std::string performanceStem_;
};

/// The process poller's thread; its argument is its `ThreadRecord`.
uint32_t processPoller(void* record);

} // namespace Velmor
