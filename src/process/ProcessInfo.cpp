// How a `Process` learns its executable and its account.

#include "platform/Accounts.h"
#include "platform/Errors.h"
#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "process/Process.h"
#include "process/ProcessShared.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr int moduleAttempts = 4;
constexpr uint32_t moduleAttemptPause = 50; // milliseconds; a young process has no modules yet
constexpr int32_t windows2000 = 50;         // its system number; older systems know no image name
constexpr std::string_view systemUser = "SYSTEM";
constexpr std::string_view separators = "\\/";

/// Gives each directory of the path its stored name, and the whole path in lower case.
void normaliseExecutable(std::string& path) {
    const size_t separator = path.find_last_of(separators);
    if (separator != std::string::npos && platform().fileSystem->hasShortNames())
        path = FileOps::getLongPath(path.substr(0, separator + 1)) + path.substr(separator + 1);
    toLower(path);
}

/// Puts the drive letter in place of the device that begins the path; false if no drive stands for it.
bool replaceDeviceByDrive(std::string& path) {
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const std::string drive{letter, ':'};
        std::string device;
        if (!platform().fileSystem->deviceOfDrive(drive, device) || !path.starts_with(device))
            continue;
        path.replace(0, device.size(), drive);
        return true;
    }
    return false;
}

/// Looks for the file of a device path without a drive on the current drive, with ever more of its directories.
/// Without a find the path stays.
void findOnCurrentDrive(std::string& path) {
    std::string rest;
    uint32_t error = NativeError::success;
    if (!platform().fileSystem->fullPath(path, rest, error))
        return;
    const size_t headEnd = rest.find_first_of(separators);
    if (headEnd == std::string::npos)
        return;
    const std::string head = rest.substr(0, headEnd);
    rest.erase(0, headEnd + 1);
    for (size_t end = rest.size(); end > 0;) {
        const size_t separator = rest.find_last_of(separators, end - 1);
        const size_t begin = separator == std::string::npos ? 0 : separator + 1;
        const std::string candidate = head + "\\" + rest.substr(begin);
        if (FileOps::exists(candidate)) {
            path = candidate;
            return;
        }
        end = separator == std::string::npos ? 0 : separator;
    }
}
} // namespace

void Process::describeUnopened(bool accessDenied, bool lost, std::string& name) const {
    name = accessDenied ? accessDeniedText : (lost ? lostText : unknownText);
}

bool Process::findFirstModule(ModuleId& module, uint32_t& error) {
    std::vector<ModuleId> room(1);
    size_t count = 0;
    if (!platform().processes->modules(handle_, room, count, error))
        return false;
    module = room.front();
    return true;
}

bool Process::takeModulePath(std::string_view caller, uint32_t pid, ModuleId module, std::string& name) {
    const Logger& log = processShared().logger;
    std::string path;
    uint32_t error = NativeError::success;
    if (!platform().processes->modulePath(handle_, module, path, error)) {
        log.debug(3, "   %s: Unable to get module file name for process %i. (Windows error code %i)", caller, pid,
                  error);
        return false;
    }
    normaliseExecutable(path);
    name = std::move(path);
    log.debug(5, "   %s: Got module (process) file name. Executable is \"%s\".", caller, name);
    return true;
}

void Process::getProcessInfo(uint32_t pid, std::string& name) {
    constexpr std::string_view caller = "getProcessInfo";
    const Logger& log = processShared().logger;
    log.debug(5, "getProcessInfo: Getting info for process %i...", pid);
    bool accessDenied = false;
    bool lost = false;
    if (!openProcess(caller, pid, accessDenied, lost)) {
        describeUnopened(accessDenied, lost, name);
        return;
    }
    log.debug(5, "   getProcessInfo: Got handle.");
    ModuleId module = 0;
    uint32_t error = NativeError::success;
    if (findFirstModule(module, error)) {
        takeModulePath(caller, pid, module, name);
    } else {
        log.debug(1, "   getProcessInfo: Failed to run EnumProcessModules (%i)", error);
        getProcessFileName(caller, pid, name);
    }
    if (name.empty())
        name = unknownText;
    log.debug(5, "   getProcessInfo: Finished with process.");
}

void Process::getProcessInfo2(uint32_t pid, std::string& name, bool useImageName) {
    constexpr std::string_view caller = "getProcessInfo2";
    const Logger& log = processShared().logger;
    log.debug(5, "getProcessInfo2: Accessing process %i...", pid);
    bool accessDenied = false;
    bool lost = false;
    if (!openProcess(caller, pid, accessDenied, lost)) {
        describeUnopened(accessDenied, lost, name);
        state_ = ProcessState::unresolved;
        return;
    }
    log.debug(5, "   getProcessInfo2: Got handle.");
    ModuleId module = 0;
    uint32_t error = NativeError::success;
    bool found = false;
    for (int i = 0; i < moduleAttempts && !found; ++i) {
        found = findFirstModule(module, error);
        if (!found)
            Timer::sleep(moduleAttemptPause);
    }
    if (found) {
        takeModulePath(caller, pid, module, name);
    } else {
        log.debug(3, "   getProcessInfo2: Failed to run EnumProcessModules (%i)", error);
        if (!useImageName)
            return;
        getProcessFileName(caller, pid, name);
        state_ = ProcessState::unresolved;
        log.debug(5, "   getProcessInfo2: Failed to enumerate modules.");
    }
    if (name.empty())
        name = unknownText;
    readAccount();
    log.debug(5, "   getProcessInfo2: Finished with process.");
}

void Process::becomeSystem() {
    setAccount(systemUser, getLocalComputerName());
}

void Process::readAccount() {
    const Logger& log = processShared().logger;
    uint32_t error = NativeError::success;
    const TokenHandle token = platform().processes->openToken(handle_, error);
    if (!token) {
        becomeSystem();
        log.debug(5, "   getProcessInfo2: Failed to open token, and thus also get user info. (Error code %i)", error);
        return;
    }
    log.debug(5, "   getProcessInfo2: Got token.");
    std::string sid;
    if (!platform().processes->tokenUser(token, sid, error)) {
        becomeSystem();
        log.debug(5, "   getProcessInfo2: Failed to get token information, and thus also user info.");
        return;
    }
    std::string user;
    std::string domain;
    if (!platform().accounts->lookup(sid, user, domain, error)) {
        becomeSystem();
        log.debug(5, "   getProcessInfo2: Failed to look up account sid, and thus also get user info. (Error code %i)",
                  error);
        return;
    }
    setAccount(user, domain);
    log.debug(5, "   getProcessInfo2: Got user info: User=%s, Domain=%s.", user_, domain_);
}

bool Process::getUserFromSid(std::string_view sid) {
    std::string user;
    std::string domain;
    uint32_t error = NativeError::success;
    if (!platform().accounts->lookup(sid, user, domain, error))
        return false;
    setAccount(user, domain);
    processShared().logger.debug(5, "   getUserFromSid: Looked up account sid.");
    return true;
}

int32_t Process::getProcessFileName(std::string_view caller, uint32_t pid, std::string& name) {
    const Logger& log = processShared().logger;
    uint32_t error = NativeError::success;
    if (processShared().systemNumber <= windows2000) {
        log.debug(3, "   %s: Unable to get process file name for process %i. (Windows error code %i)", caller, pid,
                  error);
        return -1;
    }
    std::string path;
    if (!platform().processes->imageName(handle_, path, error) || path.empty()) {
        log.debug(3, "   %s: Unable to get process image file name for process %i. (Windows error code %i)", caller,
                  pid, error);
        return -1;
    }
    if (!replaceDeviceByDrive(path))
        findOnCurrentDrive(path);
    toLower(path);
    name = std::move(path);
    log.debug(5, "   %s: Got process file name. Executable is \"%s\".", caller, name);
    return 0;
}

void Process::refreshInfo() {
    if (account_ == systemUser) {
        getProcessInfo2(pid_, executable_, true);
        return;
    }
    ProcessHandle former = std::move(handle_); // if it has ended meanwhile, this alone tells its exit code
    if (isUnknownName(parentExecutable_)) {
        getProcessInfo(parentPid_, parentExecutable_);
        invalidate();
    }
    getProcessInfo(pid_, executable_);
    if (!handle_)
        handle_ = std::move(former);
    else if (isUnknownName(user_))
        readAccount();
}

} // namespace Velmor
