#include "support/ScriptedPlatform.h"

#include <algorithm>
#include <cstring>

namespace Velmor {

namespace {
constexpr int32_t beginning = 1000000000; // 2001-09-09T01:46:40Z

struct PaperHandle : NativeProcess {
    std::shared_ptr<ScriptedProcess> process;
};

struct PaperToken : NativeToken {
    std::string sid;
};

ScriptedProcess& on(const ProcessHandle& handle) {
    return *static_cast<const PaperHandle&>(*handle).process;
}
} // namespace

void ScriptedClock::sleep(uint32_t milliseconds) {
    milliseconds_ += milliseconds;
    ticks_ += milliseconds;
    if (onSleep)
        onSleep();
}

void ScriptedClock::advance(int32_t seconds) {
    milliseconds_ += int64_t{seconds} * 1000;
    ticks_ += int64_t{seconds} * 1000;
}

bool ScriptedProcesses::enumerate(std::vector<uint32_t>& ids) {
    ids.clear();
    for (const auto& [pid, process] : table_)
        if (process->isAlive)
            ids.push_back(pid);
    return canEnumerate;
}

ProcessHandle ScriptedProcesses::open(uint32_t pid, uint32_t& error) {
    if (onCall)
        onCall();
    const Table& known = traced.contains(pid) ? traced : table_;
    const auto found = known.find(pid);
    error = found != known.end() ? found->second->openError : NativeError::invalidParameter;
    if (error != NativeError::success)
        return nullptr;
    auto handle = std::make_unique<PaperHandle>();
    handle->process = found->second;
    return handle;
}

bool ScriptedProcesses::exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) {
    if (onCall)
        onCall();
    code = on(process).isAlive ? stillActive : on(process).exitCode;
    if (on(process).isAlive || on(process).knowsExitCode)
        return true;
    error = NativeError::accessDenied;
    return false;
}

bool ScriptedProcesses::modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count,
                                uint32_t& error) {
    if (on(process).modulesFail > 0) {
        --on(process).modulesFail;
        error = NativeError::invalidParameter;
        return false;
    }
    count = on(process).modules.size() + 1;
    for (size_t i = 0; i < std::min(count, modules.size()); ++i)
        modules[i] = i;
    return true;
}

bool ScriptedProcesses::modulePath(const ProcessHandle& process, ModuleId module, std::string& path, uint32_t&) {
    path = module == 0 ? on(process).path : on(process).modules.at(module - 1);
    return true;
}

bool ScriptedProcesses::moduleName(const ProcessHandle& process, ModuleId module, std::string& name, uint32_t& error) {
    modulePath(process, module, name, error);
    name.erase(0, name.find_last_of("\\/") + 1);
    return true;
}

bool ScriptedProcesses::imageName(const ProcessHandle& process, std::string& path, uint32_t&) {
    path = on(process).image;
    return !path.empty();
}

TokenHandle ScriptedProcesses::openToken(const ProcessHandle& process, uint32_t& error) {
    error = NativeError::accessDenied;
    if (!on(process).hasToken)
        return nullptr;
    auto token = std::make_unique<PaperToken>();
    token->sid = on(process).sid;
    return token;
}

bool ScriptedProcesses::tokenUser(const TokenHandle& token, std::string& sid, uint32_t&) {
    sid = static_cast<const PaperToken&>(*token).sid;
    return true;
}

bool ScriptedProcesses::startTime(const ProcessHandle& process, uint64_t& time) {
    time = on(process).startTime;
    return true;
}

bool ScriptedProcesses::startSecond(const ProcessHandle& process, int32_t& second) {
    second = on(process).startSecond;
    return true;
}

ScriptedProcess& ScriptedProcesses::start(uint32_t pid, const std::string& path) {
    if (table_.contains(pid))
        end(pid, 0);
    auto process = std::make_shared<ScriptedProcess>();
    process->path = path;
    process->startTime = ++startCount_;
    process->startSecond = clock_.now();
    table_[pid] = process;
    return *process;
}

void ScriptedProcesses::end(uint32_t pid, uint32_t exitCode) {
    const auto found = table_.find(pid);
    if (found == table_.end())
        return;
    found->second->isAlive = false;
    found->second->exitCode = exitCode;
    table_.erase(found);
}

bool ScriptedAccounts::lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) {
    const auto found = accounts.find(sid);
    error = NativeError::noneMapped;
    if (found == accounts.end())
        return false;
    std::tie(user, domain) = found->second;
    return true;
}

bool ScriptedRegistry::read(std::string_view name, uint32_t& type, std::string& data, uint32_t& error) {
    const auto found = values.find(name);
    error = NativeError::fileNotFound;
    if (found == values.end())
        return false;
    std::tie(type, data) = found->second;
    return true;
}

void ScriptedRegistry::setNumber(const std::string& name, int32_t number) {
    std::string data(sizeof(number), '\0');
    std::memcpy(data.data(), &number, sizeof(number));
    values[name] = {RegistryType::number, data};
}

bool ScriptedFileSystem::deviceOfDrive(std::string_view drive, std::string& device) {
    const auto found = devices.find(drive);
    if (found == devices.end())
        return false;
    device = found->second;
    return true;
}

uint32_t ScriptedFileSystem::driveType(std::string_view drive) {
    return devices.contains(drive) ? DriveType::fixed : LinuxFileSystem::driveType(drive);
}

namespace {
class PaperResource : public VersionResource {
public:
    explicit PaperResource(const ScriptedVersionResources::Strings& strings) : strings_(strings) {}
    std::vector<Translation> translations() override { return {{1033, 1200}}; }
    bool string(Translation, std::string_view name, std::string& value) override {
        const auto found = strings_.find(name);
        if (found == strings_.end())
            return false;
        value = found->second + '\0';
        return true;
    }

private:
    const ScriptedVersionResources::Strings& strings_;
};
} // namespace

std::unique_ptr<VersionResource> ScriptedVersionResources::open(std::string_view path) {
    if (onCall)
        onCall();
    const auto found = entries.find(path);
    return found == entries.end() ? nullptr : std::make_unique<PaperResource>(found->second);
}

void ScriptedVersionResources::describe(const std::string& path, const std::string& description,
                                        const std::string& product) {
    Strings& strings = entries[path];
    if (!description.empty())
        strings["FileDescription"] = description;
    if (!product.empty())
        strings["ProductName"] = product;
    strings["FileVersion"] = "1.0";
}

ScriptedPlatform::ScriptedPlatform() : ports_(nativePlatform()) {
    clock.set(beginning);
    ports_.clock = &clock;
    ports_.processes = &processes;
    ports_.accounts = &accounts;
    ports_.registry = &registry;
    ports_.machine = &machine;
    ports_.fileSystem = &fileSystem;
    ports_.versionResources = &versionResources;
    ports_.performanceData = &performanceData;
    ports_.kernelTrace = &kernelTrace;
    ports_.eventSchema = &eventSchema;
    usePlatform(&ports_);
}

ScriptedPlatform::~ScriptedPlatform() {
    usePlatform(nullptr);
}

} // namespace Velmor
