#pragma once

#include "platform/EventSchema.h"
#include "platform/KernelTrace.h"
#include "platform/Processes.h"
#include "process/ModuleRecord.h"
#include "process/performance/OscCounter.h"
#include "shared/library/common/pointers/ComparisonPointer.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/logger/LoggerUnit.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// What a `Process` reports.
enum class ProcessState : int32_t {
    started = 0,
    ended = 1,
    inUse = 2, // a usage slice is due
    unresolved = 3,
};

/// A performance counter of a process, and when it went into a record last.
struct ProcessCounter : OscCounter {
    int32_t lastRecord = 0; // seconds since 1970; 0 if it hasn't been in one
};

/// The collector's picture of one process of the operating system: who it is, whom it runs for, when it lived, and
/// which modules it has loaded. What can't be learnt is a placeholder, never a failure. An object has no lock: it is
/// used by one thread until it is shared, and under the registry's lock from then on.
class Process {
public:
    static constexpr std::string_view unknownText = "<<unknown>>"; // nothing learned yet
    static constexpr std::string_view lostText = "<<lost>>";       // gone when it was opened
    static constexpr std::string_view accessDeniedText = "(ACCESS DENIED)";

    /// How much the constructor looks at the system.
    enum class Mode : int32_t {
        ended = 0,  // reads nothing
        running = 1 // opens the process and reads names and account
    };

    /// `startSeconds` 0 means that it started now. With `useImageName` a process whose modules can't be read is named
    /// from its image.
    Process(uint32_t pid, int32_t startSeconds, Mode mode, bool useImageName);
    /// From the event of a start or an end: ids, names, account and the time. An event of another type gives an object
    /// that is unresolved; what the payload doesn't tell stays as it is at the beginning.
    explicit Process(const TraceEvent& event);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    virtual ~Process() { invalidate(); }

    /// Opens the process for looking; a handle that is held stays. `caller` leads the trace. On failure `accessDenied`
    /// or `lost` tells why, if it was one of these.
    bool openProcess(std::string_view caller, uint32_t pid, bool& accessDenied, bool& lost);
    /// Closes the handle; the next look opens anew.
    void invalidate();

    /// The path of a process's executable, or a placeholder. The handle stays open.
    void getProcessInfo(uint32_t pid, std::string& name);
    /// As `getProcessInfo`, and reads the account as well. May set the state to `unresolved`.
    void getProcessInfo2(uint32_t pid, std::string& name, bool useImageName);
    /// The path by the device path of the image. 0, or -1 with `name` as it was.
    int32_t getProcessFileName(std::string_view caller, uint32_t pid, std::string& name);
    /// Takes the account of a SID over; false if nobody knows it.
    bool getUserFromSid(std::string_view sid);
    /// Reads the names again.
    void refreshInfo();

    /// 259 while the process runs; 0 without a handle or if the code can't be learnt, which is then a warning and gives
    /// the handle up.
    uint32_t getExitCode();
    /// Says how many codes could not be learnt that no message has told of; once a minute, or `now`.
    static void tellUnknownCodes(bool now);
    /// True only if a handle is held and tells that the process runs.
    bool isRunning();

    /// Base names of the loaded modules in lower case, the image first. Empty for an ended process.
    void getModules(std::vector<std::string>& list);
    /// Brings the module table up to date, and returns those that have gone since, in name order. The image is none.
    std::vector<ModuleRecord> updateModules();

    /// Whether its executable's path leads to that file here, as far as anybody can tell.
    bool isFileHere() const;

    /// Whether the two objects, which share an id, may be one process: false only if the kernel's start times of both
    /// handles are known and differ.
    bool isSameProcess(const Process& other) const;

    /// Moves the start up to `earliest` and to where the system says that the process started; not into the future.
    void startNotBefore(const DateTime& earliest);

    uint32_t pid() const { return pid_; }
    uint32_t orderingField() const { return pid_; }
    ProcessState getState() const { return state_; }
    void setState(ProcessState state) { state_ = state; }
    const std::string& getExecutable() const { return executable_; } // full path in lower case, or a placeholder
    const std::string& getApplication() const { return application_; }
    void setApplication(std::string_view name) { application_ = name; }
    const DateTime& getStart() const { return start_; }
    void setStart(const DateTime& start) { start_ = start; }
    const DateTime& getEnd() const { return end_; }
    void setEnd(const DateTime& end) { end_ = end; }
    const std::string& getUser() const { return user_; }
    /// Sets the user text, and the account with it.
    void setUser(std::string_view user);
    const std::string& getAccount() const { return account_; } // two backslashes, domain, backslash, user
    bool isOpen() const { return handle_ != nullptr; }
    bool isExecutableUnknown() const { return isUnknownName(executable_); }
    static bool isUnknownName(std::string_view text) { return text == unknownText; }
    void markLogged() { logged_ = true; }
    bool isLogged() const { return logged_; } // a usage record of it has been written
    void setMonitored(bool monitored) { monitored_ = monitored; }
    bool isMonitored() const { return monitored_; } // the performance rules selected it

    std::vector<ProcessCounter>& counters() { return counters_; } // empty unless it is monitored

    /// Takes names and account over from another picture of the same process; ids and times stay.
    void copyIdentity(const Process& other);

    /// Gives all objects the unit to write through, and learns the local computer's name. Before the threads start.
    static void setLogger(const SmartPointer<LoggerUnit>& unit);
    static const std::string& getLocalComputerName();

private:
    void describeUnopened(bool accessDenied, bool lost, std::string& name) const;
    bool findFirstModule(ModuleId& module, uint32_t& error);
    bool takeModulePath(std::string_view caller, uint32_t pid, ModuleId module, std::string& name);
    void reportUnknownCode() const;
    void readAccount();
    void becomeSystem();
    void setAccount(std::string_view user, std::string_view domain);
    bool readBySchema(const TraceEvent& event);
    void walkProperties(std::span<const uint8_t> payload, const std::vector<const SchemaProperty*>& list,
                        const std::vector<uint32_t>& order);
    void readFixedLayout(std::span<const uint8_t> payload);
    void lookNamesUp();

    ProcessHandle handle_;
    uint32_t pid_;
    uint32_t parentPid_ = 0; // known from events only, like the parent's executable
    std::string executable_{unknownText};
    std::string parentExecutable_{unknownText};
    std::string application_;
    ProcessState state_ = ProcessState::unresolved;
    bool logged_ = false;
    bool monitored_ = false;
    std::vector<ProcessCounter> counters_;
    DateTime start_;
    DateTime end_;
    std::string user_{unknownText};
    std::string domain_{unknownText};
    std::string account_{unknownText};
    std::map<std::string, ModuleRecord> modules_; // seen so far and not gone, by name
};

using ProcessPointer = SmartComparisonPointer<Process>;

} // namespace Velmor
