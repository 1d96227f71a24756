#include "process/Process.h"

#include "platform/Clock.h"
#include "platform/Errors.h"
#include "platform/Platform.h"
#include "process/ProcessShared.h"
#include "process/RuntallyMessages.h"
#include "shared/library/common/system/LossBook.h"
#include "shared/library/common/system/SystemInfo.h"

namespace Velmor {

namespace {
constexpr uint32_t codesPause = 60000; // milliseconds
}

ProcessShared& processShared() {
    static ProcessShared shared;
    return shared;
}

Process::Process(uint32_t pid, int32_t startSeconds, Mode mode, bool useImageName) : pid_(pid) {
    ProcessShared& shared = processShared();
    if (shared.systemNumber == 0)
        shared.systemNumber = getOsVersion();
    if (startSeconds != 0)
        start_ = DateTime(startSeconds);
    if (mode == Mode::running) {
        state_ = ProcessState::started;
        getProcessInfo2(pid, executable_, useImageName);
    } else if (mode == Mode::ended) {
        state_ = ProcessState::ended;
    }
}

void Process::setLogger(const SmartPointer<LoggerUnit>& unit) {
    ProcessShared& shared = processShared();
    shared.logger.set(unit);
    std::string domain;
    std::string architecture;
    std::string osName;
    std::string computerName;
    try {
        getStaticInfo(domain, computerName, architecture, osName);
    } catch (...) {
        shared.logger.debug(
            3, "Agent::configure: Exception occured in getStaticInfo. Check status of Workstation service.");
    }
    if (shared.localComputerName != computerName)
        shared.localComputerName = computerName;
}

const std::string& Process::getLocalComputerName() {
    return processShared().localComputerName;
}

bool Process::openProcess(std::string_view caller, uint32_t pid, bool& accessDenied, bool& lost) {
    const Logger& log = processShared().logger;
    log.debug(5, "openProcess.%s: Opening process %i...", caller, pid);
    if (handle_) {
        log.debug(5, "   openProcess.%s: Process is already open.", caller);
        return true;
    }
    accessDenied = false;
    lost = false;
    uint32_t error = NativeError::success;
    handle_ = platform().processes->open(pid, error);
    if (handle_) {
        log.debug(5, "   openProcess.%s: Process opened.", caller);
        return true;
    }
    accessDenied = error == NativeError::accessDenied;
    lost = error == NativeError::invalidParameter;
    if (error == NativeError::tooManyOpenFiles)
        lossBook().add(LossBook::Cause::unopened);
    if (accessDenied)
        log.debug(3, "   openProcess.%s: Access denied to process.", caller);
    else if (lost)
        log.debug(3, "   openProcess.%s: Process lost.", caller);
    else
        log.debug(3, "   openProcess.%s: Got error code %i. (pid=%i)", caller, error, pid);
    return false;
}

void Process::invalidate() {
    const Logger& log = processShared().logger;
    log.debug(5, "invalidate: Invalidating process...");
    if (!handle_) {
        log.debug(5, "   invalidate: Process already invalid.");
        return;
    }
    handle_.reset();
    log.debug(5, "   invalidate: Process %i invalidated.", pid_);
}

uint32_t Process::getExitCode() {
    const Logger& log = processShared().logger;
    log.debug(5, "getExitCode: Getting exit code for process %i.", pid_);
    if (!handle_)
        return 0;
    uint32_t code = 0;
    uint32_t error = NativeError::success;
    if (platform().processes->exitCode(handle_, code, error)) {
        log.debug(5, "   getExitCode: Got exit code %i from process %i.", code, pid_);
        return code;
    }
    if (log.passes(1))
        log.debug(1, "   getExitCode: Unable to get exit code from process %i, started at %s.", pid_,
                  start_.toString(false, false));
    reportUnknownCode();
    invalidate();
    return 0;
}

/// One by its name, and those that follow within a minute by their number: hundreds come at once after a loss of
/// events.
void Process::reportUnknownCode() const {
    lossBook().add(LossBook::Cause::exitCodes);
    ProcessShared& shared = processShared();
    const uint32_t now = platform().clock->ticks();
    if (shared.hasToldCodes && now - shared.codesTold < codesPause) {
        ++shared.untoldCodes;
        return;
    }
    shared.hasToldCodes = true;
    shared.codesTold = now;
    shared.logger.warning(RuntallyMessage::exitCodeUnknown, executable_, start_.getSeconds());
}

void Process::tellUnknownCodes(bool now) {
    ProcessShared& shared = processShared();
    const uint32_t ticks = platform().clock->ticks();
    if (shared.untoldCodes == 0 || (!now && ticks - shared.codesTold < codesPause))
        return;
    shared.codesTold = ticks;
    shared.logger.warning(RuntallyMessage::exitCodesUnknown, std::to_string(shared.untoldCodes.exchange(0)));
}

bool Process::isRunning() {
    uint32_t code = 0;
    uint32_t error = NativeError::success;
    return handle_ && platform().processes->exitCode(handle_, code, error) && code == stillActive;
}

bool Process::isFileHere() const {
    return !handle_ || platform().processes->isFileHere(handle_);
}

bool Process::isSameProcess(const Process& other) const {
    uint64_t own = 0;
    uint64_t others = 0;
    const bool known = handle_ && other.handle_ && platform().processes->startTime(handle_, own) &&
                       platform().processes->startTime(other.handle_, others);
    return !known || own == others;
}

void Process::startNotBefore(const DateTime& earliest) {
    if (start_ < earliest)
        start_ = earliest;
    int32_t second = 0;
    if (handle_ && platform().processes->startSecond(handle_, second) && start_.getSeconds() < second)
        start_ = DateTime(second);
    if (const DateTime now; now < start_)
        start_ = now;
}

void Process::setUser(std::string_view user) {
    setAccount(user, std::string(domain_));
}

void Process::setAccount(std::string_view user, std::string_view domain) {
    user_ = user;
    domain_ = domain;
    account_ = "\\\\" + domain_ + "\\" + user_;
}

void Process::copyIdentity(const Process& other) {
    executable_ = other.executable_;
    application_ = other.application_;
    user_ = other.user_;
    domain_ = other.domain_;
    account_ = other.account_;
}

} // namespace Velmor
