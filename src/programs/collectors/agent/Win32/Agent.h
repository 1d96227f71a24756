#pragma once

#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/CommandLine.h"
#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/ipc/IPCServer.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/context/LoggerContext.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace Velmor {

/// Called with the id of a thread that was found silent or dead, so that locks that it held can be freed.
using ThreadLostHook = void (*)(uint32_t threadId);

/// The base of a collector program: start-up, the list of worker threads and their supervision, the instance lock, the
/// mailslot server. One object lives for the whole run.
class Agent {
public:
    /// Takes the program's command line as one text.
    explicit Agent(std::string_view commandLine);
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    virtual ~Agent();

    /// Runs until the program is to end.
    virtual void run() = 0;

    /// Stops the workers, configures anew and starts them again. False, and nothing changes, if the configuration has a
    /// mistake; a message says which. False also if a step failed on the way: the workers stay down then, and the last
    /// slices go to the former data files.
    virtual bool reconfigure();

    /// Looks at files that a new configuration names, before it is taken over. False with what is wrong in `problem`.
    virtual bool acceptsConfiguration(const ConfReader& /*fresh*/, std::string& /*problem*/) const { return true; }

    /// Whether a new configuration, which has been accepted, judges or names otherwise than the one in force.
    virtual bool judgesOtherwise(const ConfReader& /*fresh*/) const { return false; }

    /// All that is wrong in what a start would read, and with `withRights` what its sources lack. Changes nothing.
    virtual Findings check(bool /*withRights*/) const { return {}; }

    /// The collector's own part of the configuration. False if it can't go on.
    virtual bool configureCollector() = 0;

    /// The whole start-up, up to the point where the threads could start. False if the program can't run; the cause is
    /// in the log and in `ProgramState::startupFailure`.
    bool configure();

    /// Enters a worker; the stored record stays where it is and is the argument of the thread function.
    ThreadRecord& addThread(const ThreadRecord& record);

    /// Adds the worker `name` that runs `routine`. False if it can't be made.
    bool prepareThread(const std::string& name, uint16_t reporting, ThreadRoutine routine);

    /// Starts all workers, each whatever becomes of the others. False if one can't be started.
    bool startThreads();
    /// Tells those that take part to end, and ends the others.
    void stopThreads();
    /// Ends by force what still runs. False if something does so all the same.
    bool verifyStoppedThreads();
    /// Waits two seconds at most for the workers that take part in the report protocol, or with 0 for the others, to
    /// end by themselves: they may be in the middle of something.
    void awaitThreads(uint16_t reporting);
    /// Whether a worker runs, as one that can't be ended.
    bool hasRunningThread() const;
    /// `stopThreads`, a pause, `verifyStoppedThreads`.
    bool stopAndVerify();
    /// One pass of supervision: looks at all workers, and mends what isn't well. False if the program must end.
    bool checkThreads();
    /// The look alone, in two phases that alternate: ask, and check for answers. False if a worker isn't well.
    bool monitorThreads();

    /// Sends the core service what it could not take before.
    void forwardWaiting();

    /// Listens for commands, and tells of them. False if that can't be.
    bool startIPCServer(std::string_view name, IPCListener& told);

    /// Ends the listening; nothing if there is none.
    void stopIPCServer();

    /// The record of a data delivery worker.
    bool prepareDataDelivery();

    /// Deals with the working files that a crash left in the data directory: files with data go to the core service,
    /// the others are deleted. Before any data file is opened.
    static void handleLeftovers();

    /// What the supervisor does before its first look, so that the workers have come up.
    virtual void awaitWorkers();
    /// What the supervisor does besides in each of its rounds, twice a second.
    virtual void supervisionRound() {}

    /// What the collector does now, for whoever asks the service manager.
    virtual std::string statusSentence() { return "Runs."; }

    /// Tells those who keep the collector's figures: at the start, behind a reconfiguration and once a minute.
    virtual void publishFigures() {}

    void setThreadLostHook(ThreadLostHook hook) { threadLostHook_ = hook; }
    /// Whether a new configuration is being put in force.
    bool isReconfiguring() const { return isReconfiguring_; }
    const LoggerContext& loggerContext() const { return loggerContext_; }
    const ConfReader& conf() const { return *loggerContext_.conf; }

protected:
    /// The stem of registry values, configuration keys and the instance lock.
    void setName(std::string_view name) { name_ = name; }

    /// The directory of the configuration files, with a separator at its end; false if there is none.
    static bool readConfigurationDirectory(std::string& directory);
    std::string configurationFile(const std::string& directory) const;
    /// The prime time file that a configuration names.
    std::string primeTimeFile(const ConfReader& configuration, const std::string& directory) const;
    /// Gives what is tracked a slice that ends now, under what has been in force until now; once for a configuration.
    void sliceBeforeChange();

    /// Notes what a start-up that fails says to whoever started it. Always false.
    static bool fail(const std::string& causeAndRemedy);

private:
    bool isConfigurationUsable();
    bool restartWorkers();
    bool configureAgain();
    static bool refuse(const std::string& problem);
    bool startOwnLogging();
    bool takeInstanceGuard();
    void loadConfiguration(const std::string& directory);
    static void tellFindings(const Findings& findings);
    void loadLogMessages();
    bool loadPrimeTime(const std::string& directory);
    void readStaticInfo();
    std::string lowerName() const;

    bool monitorThread(ThreadRecord& record, bool initiating);
    bool checkThread(ThreadRecord& record);
    bool killSilent(ThreadRecord& record);
    bool restart(ThreadRecord& record);
    bool endThread(ThreadRecord& record);
    bool stopThread(ThreadRecord& record);
    void threadLost(const ThreadRecord& record) const;

    std::string name_;
    Monopoly instanceGuard_; // keeps a second copy of the collector from starting
    LoggerContext loggerContext_;
    std::vector<Argument> arguments_;
    std::string configurationFile_;     // as the command line names it; empty: the usual one
    std::list<LogCommons> logMessages_; // the message catalogue; behind the former one, which may still be looked at
    SmartPointer<IPCServer> ipcServer_;
    std::atomic<bool> isReconfiguring_{false};
    bool isJudgedOtherwise_ = false; // by a new configuration
    bool isSliceDue_ = false;        // by a new configuration
    bool initiating_ = true;         // the next look at the threads asks
    ThreadLostHook threadLostHook_ = nullptr;
    std::list<ThreadRecord> threads_; // last, so that a thread that still runs is ended before what it uses
};

/// The supervisor's thread; its argument is the `Agent`. At its end it posts the quit message to the main thread.
uint32_t statusMonitor(void* agent);

} // namespace Velmor
