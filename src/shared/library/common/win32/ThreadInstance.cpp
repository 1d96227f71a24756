#include "shared/library/common/win32/ThreadInstance.h"

#include "platform/Errors.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/JobException.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr std::string_view sourceName = "shared\\library\\common\\win32\\ThreadInstance";
constexpr auto stopExitCode = static_cast<uint32_t>(-1);
constexpr uint32_t stopLimit = 1000; // milliseconds that a thread has to end by itself
constexpr uint32_t stopStep = 50;

[[noreturn]] void fail(JobCode code, uint32_t error, int32_t line) {
    throw JobException(code, "Win32 error code is : " + std::to_string(error), sourceName, line);
}

/// For operations that tell a thread that was never started from other failures.
[[noreturn]] void failOrNeverStarted(JobCode code, uint32_t error, int32_t line) {
    if (error == NativeError::invalidHandle)
        throw JobException(JB_NEVER_STARTED, "", sourceName, line);
    fail(code, error, line);
}
} // namespace

ThreadInstance::~ThreadInstance() {
    uint32_t code = 0;
    uint32_t error = 0;
    if (!platform().threads->exitCode(handle_, code, error)) {
        status_ = JobStatus::stateUnreadable;
        return;
    }
    if (code != stillActive)
        return;
    status_ = JobStatus::terminated;
    if (!platform().threads->terminate(handle_, 0, error))
        status_ = JobStatus::terminationFailed;
}

void ThreadInstance::execute() {
    uint32_t id = 0;
    uint32_t error = 0;
    ThreadHandle handle = platform().threads->create(routine_, argument_, id, error);
    if (!handle)
        fail(JB_UNABLE_TO_START, error, __LINE__);
    handle_ = std::move(handle);
    threadId_ = id;
    status_ = JobStatus::running;
}

uint32_t ThreadInstance::suspend() {
    uint32_t code = 0;
    uint32_t error = 0;
    if (!platform().threads->exitCode(handle_, code, error))
        failOrNeverStarted(JB_UNKNOWN_ERROR, error, __LINE__);
    if (code != stillActive)
        return 0;
    uint32_t previous = 0;
    if (!platform().threads->suspend(handle_, previous, error))
        fail(JB_UNKNOWN_ERROR, error, __LINE__);
    return previous + 1;
}

uint32_t ThreadInstance::resume() {
    uint32_t previous = 0;
    uint32_t error = 0;
    if (!platform().threads->resume(handle_, previous, error))
        failOrNeverStarted(JB_UNKNOWN_ERROR, error, __LINE__);
    return previous;
}

int32_t ThreadInstance::stop() {
    if (getStatus() != JobStatus::running)
        return 0;
    if (platform().messageQueues->post(threadId_, WindowMessage::destroy))
        waitForEnd();
    if (getStatus() != JobStatus::running) { // a post fails just when the thread has ended meanwhile
        status_ = JobStatus::stopped;
        return 1;
    }
    uint32_t error = 0;
    if (!platform().threads->terminate(handle_, stopExitCode, error))
        failOrNeverStarted(JB_UNABLE_TO_TERMINATE, error, __LINE__);
    status_ = JobStatus::terminated;
    return 1;
}

void ThreadInstance::waitForEnd() {
    Timer::waitUntil(stopLimit, stopStep, [this] { return getStatus() != JobStatus::running; });
}

int32_t ThreadInstance::getStatus() {
    if (status_ == JobStatus::terminated || status_ == JobStatus::stopped)
        return status_;
    uint32_t code = 0;
    uint32_t error = 0;
    if (platform().threads->exitCode(handle_, code, error))
        return code == stillActive ? JobStatus::running : JobStatus::ended;
    if (error == NativeError::invalidHandle)
        return JobStatus::absent;
    fail(JB_UNKNOWN_ERROR, error, __LINE__);
}

int32_t ThreadInstance::getExitCode(uint32_t& code) {
    uint32_t read = 0;
    uint32_t error = 0;
    if (!platform().threads->exitCode(handle_, read, error))
        return error == NativeError::invalidHandle ? JobStatus::absent
                                                   : JobStatus::systemError + static_cast<int32_t>(error);
    if (read == stillActive)
        return JobStatus::running;
    code = read;
    return JobStatus::exitCodeDelivered;
}

} // namespace Velmor
