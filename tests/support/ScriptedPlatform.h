#pragma once

#include "platform/Accounts.h"
#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"
#include "platform/Registry.h"
#include "platform/VersionResources.h"
#include "platform/linux/files/LinuxFileSystem.h"
#include "support/ScriptedPerformanceData.h"
#include "support/ScriptedTrace.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Velmor {

/// A clock that moves only when it is told to, or when somebody sleeps.
class ScriptedClock : public Clock {
public:
    int32_t now() override { return static_cast<int32_t>(milliseconds_ / 1000); }
    uint32_t ticks() override { return static_cast<uint32_t>(ticks_.load()); }
    void sleep(uint32_t milliseconds) override;
    CalendarFields utc(int32_t seconds) override { return nativePlatform().clock->utc(seconds); }
    CalendarFields local(int32_t seconds) override { return utc(seconds + 60 * zoneMinutes); }

    void set(int32_t seconds) { milliseconds_ = int64_t{seconds} * 1000; }
    /// Time passes.
    void advance(int32_t seconds);
    /// Somebody sets the clock.
    void step(int32_t seconds) { milliseconds_ += int64_t{seconds} * 1000; }

    /// From now on each sleep takes a real millisecond, for threads that are to keep step.
    void keepStep() {
        onSleep = [] { nativePlatform().clock->sleep(1); };
    }
    /// What each sleep waits for. Set while nobody sleeps.
    std::function<void()> onSleep;

    int32_t zoneMinutes = 0; // of the local time, east of Greenwich

private:
    std::atomic<int64_t> milliseconds_{0};
    std::atomic<int64_t> ticks_{0};
};

/// A process as the test writes it down.
struct ScriptedProcess {
    std::string path;
    std::string sid = "S-bob";
    uint64_t startTime = 0;
    int32_t startSecond = 0; // since 1970
    bool isAlive = true;
    uint32_t exitCode = 0;
    bool knowsExitCode = true;
    uint32_t openError = NativeError::success; // what opening answers
    int modulesFail = 0;                       // how many looks at the modules fail before one succeeds
    bool hasToken = true;
    std::string image; // device path
    std::vector<std::string> modules;
};

class ScriptedProcesses : public Processes {
public:
    using Table = std::map<uint32_t, std::shared_ptr<ScriptedProcess>>;

    explicit ScriptedProcesses(Clock& clock) : clock_(clock) {}

    bool enumerate(std::vector<uint32_t>& ids) override;
    ProcessHandle open(uint32_t pid, uint32_t& error) override;
    bool exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) override;
    bool modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count, uint32_t& error) override;
    bool modulePath(const ProcessHandle& process, ModuleId module, std::string& path, uint32_t& error) override;
    bool moduleName(const ProcessHandle& process, ModuleId module, std::string& name, uint32_t& error) override;
    bool imageName(const ProcessHandle& process, std::string& path, uint32_t& error) override;
    TokenHandle openToken(const ProcessHandle& process, uint32_t& error) override;
    bool tokenUser(const TokenHandle& token, std::string& sid, uint32_t& error) override;
    bool startTime(const ProcessHandle& process, uint64_t& time) override;
    bool startSecond(const ProcessHandle& process, int32_t& second) override;
    bool isFileHere(const ProcessHandle&) override { return true; }

    /// Starts a process; one under the same id has ended.
    ScriptedProcess& start(uint32_t pid, const std::string& path);
    void end(uint32_t pid, uint32_t exitCode);
    ScriptedProcess& at(uint32_t pid) { return *table_.at(pid); }
    const Table& table() const { return table_; }

    bool canEnumerate = true;
    /// What events have told of can be opened, though it has ended, until its end is taken.
    Table traced;
    std::function<void()> onCall; // each look at one process passes it

private:
    Table table_;
    uint64_t startCount_ = 0;
    Clock& clock_;
};

class ScriptedAccounts : public Accounts {
public:
    bool lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) override;
    std::map<std::string, std::pair<std::string, std::string>, std::less<>> accounts{{"S-bob", {"bob", "PC17"}},
                                                                                     {"S-1-22-1-500", {"ann", "HQ"}}};
};

class ScriptedRegistry : public Registry {
public:
    bool isReadable(std::string&) override { return true; }
    std::vector<RegistryEntry> survey(std::string& file) override {
        file = "resources.toml";
        return {};
    }
    bool read(std::string_view name, uint32_t& type, std::string& data, uint32_t& error) override;
    bool writeText(std::string_view name, std::string_view text, uint32_t&) override {
        set(std::string(name), std::string(text));
        return true;
    }
    void set(const std::string& name, const std::string& text) { values[name] = {RegistryType::text, text}; }
    void setNumber(const std::string& name, int32_t number);

    std::map<std::string, std::pair<uint32_t, std::string>, std::less<>> values;
};

class ScriptedMachine : public Machine {
public:
    bool computerName(std::string& answer) override { return !(answer = name).empty(); }
    bool domain(std::string& answer) override { return !(answer = domainName).empty(); }
    uint16_t architecture() override { return architectureNumber; }
    bool systemVersion(SystemVersion& answer) override {
        answer = version;
        return true;
    }
    std::string platformWord() override { return word; }
    bool isWow64() override { return false; }
    uint64_t physicalMemory() override { return memory; }
    bool enableDebugPrivilege(std::string&, uint32_t&) override { return true; }
    std::string missingRights() override { return {}; }
    uint32_t processId() override { return 77; }
    OwnUse ownUse() override { return {}; }
    void limitRights() override {}
    void raiseHandleLimit() override {}

    std::string name = "pc17";
    std::string domainName = "WORKGROUP";
    uint16_t architectureNumber = 0;
    uint64_t memory = 1U << 30U; // bytes
    SystemVersion version{2, 5, 1, true, 0, false, {}};
    std::string word = "windows";
};

/// The real file system, with drives and devices that only exist on paper.
class ScriptedFileSystem : public LinuxFileSystem {
public:
    bool deviceOfDrive(std::string_view drive, std::string& device) override;
    uint32_t driveType(std::string_view drive) override;

    std::map<std::string, std::string, std::less<>> devices; // "C:" to a device path
};

class ScriptedVersionResources : public VersionResources {
public:
    using Strings = std::map<std::string, std::string, std::less<>>;
    std::unique_ptr<VersionResource> open(std::string_view path) override;
    void describe(const std::string& path, const std::string& description, const std::string& product);

    std::map<std::string, Strings, std::less<>> entries;
    std::function<void()> onCall;
};

/// Puts scripted ports in force while it lives. Locks, threads, queues and mailslots stay the system's own.
class ScriptedPlatform {
public:
    ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
    ~ScriptedPlatform();

    ScriptedClock clock;
    ScriptedProcesses processes{clock};
    ScriptedAccounts accounts;
    ScriptedRegistry registry;
    ScriptedMachine machine;
    ScriptedFileSystem fileSystem;
    ScriptedVersionResources versionResources;
    ScriptedPerformanceData performanceData{clock};
    ScriptedTrace kernelTrace;
    ScriptedSchema eventSchema;

private:
    Platform ports_;
};

} // namespace Velmor
