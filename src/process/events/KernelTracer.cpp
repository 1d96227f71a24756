#include "process/events/KernelTracer.h"

#include "platform/Errors.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
constexpr std::string_view sessionName = "NT Kernel Logger";
constexpr uint32_t processEvents = 1;
constexpr uint32_t realTimeMode = 0x100;
constexpr uint32_t systemTime = 2;
constexpr int32_t windows2000 = 50; // its sessions don't know a choice of clocks
constexpr uint32_t stopPause = 100; // milliseconds

TraceProperties sessionProperties() {
    TraceProperties properties;
    properties.clientContext = getOsVersion() > windows2000 ? systemTime : 0;
    properties.maximumFileSize = 2;
    properties.logFileMode = realTimeMode;
    properties.flushTimer = 1;
    return properties;
}

std::string startText(uint32_t result) {
    switch (result) {
    case NativeError::badLength:
        return "Bad Length";
    case NativeError::invalidParameter:
        return "Invalid Parameter";
    case NativeError::alreadyExists:
        return "Already Exists";
    default:
        return "Unknown error";
    }
}

std::string readingText(uint32_t result) {
    switch (result) {
    case 6:
        return "An element of HandleArray is not a valid event tracing session handle.";
    case 14:
        return "Out of memory.";
    case 24:
        return "HandleCount is invalid.";
    case 87:
        return "HandleArray is null.";
    case 998:
        return "An exception occurred in one of the callback functions used to deliver the traces.";
    case 1901:
        return "End time is less than Start time.";
    default:
        return "Unknown return value: " + std::to_string(result) + " (" + errorName(result) + ")";
    }
}
} // namespace

KernelTracer::KernelTracer(const SmartPointer<LoggerUnit>& logger, std::atomic<uint8_t>& quitFlag)
    : quitFlag_(quitFlag) {
    logger_.set(logger);
    TraceProperties properties = sessionProperties();
    if (platform().kernelTrace->query(sessionName, properties) == NativeError::success)
        stopStaleSession();
    properties.enableFlags |= processEvents;
    reportStart(platform().kernelTrace->start(sessionName, properties));
}

void KernelTracer::stopStaleSession() {
    logger_.warning(RuntallyMessage::sessionTakenOver);
    logger_.debug(1, "Trying to stop the kernel logger...");
    const uint32_t result = platform().kernelTrace->stop(sessionName);
    if (result == NativeError::success)
        logger_.debug(1, "   Succeeded in stopping the logger.");
    else
        logger_.debug(1, "   Failed to stop the logger. Error code: %i", result);
    Timer::sleep(stopPause);
}

void KernelTracer::reportStart(uint32_t result) {
    if (const std::string lacking = platform().kernelTrace->shortcomings(); !lacking.empty())
        logger_.warning(RuntallyMessage::eventsIncomplete, lacking);
    if (result == NativeError::success) {
        logger_.debug(3, "KernelTracer: Logger started");
        return;
    }
    logger_.fatal(RuntallyMessage::sessionNotStarted, startText(result));
    quitFlag_ = 1;
}

void KernelTracer::consume() {
    uint32_t error = NativeError::success;
    TraceHandle trace = platform().kernelTrace->open(sessionName, error);
    if (!trace) {
        logger_.debug(1, "KernelTracer, consume: Error %i opening kernel session.", error);
        return;
    }
    keepsSession_ = false;
    uint32_t result = platform().kernelTrace->process(trace, onEvent_, onBuffer_);
    if (result == NativeError::cancelled && onRest_ && !keepsSession_) {
        stopSession();
        result = platform().kernelTrace->process(trace, onEvent_, onRest_);
    }
    if (result != NativeError::success && result != NativeError::cancelled)
        logger_.critical(RuntallyMessage::traceEnded, readingText(result));
    platform().kernelTrace->close(trace);
}

KernelTracer::~KernelTracer() {
    stopSession();
}

void KernelTracer::stopSession() {
    if (isStopped_)
        return;
    isStopped_ = true;
    if (platform().kernelTrace->stop(sessionName) == NativeError::success)
        logger_.debug(3, "KernelTracer: The logger was stopped");
    else
        logger_.debug(1, "KernelTracer: The logger was not stopped");
}

KernelTracer::Losses KernelTracer::losses() {
    TraceProperties properties; // without a session as they are: nothing
    platform().kernelTrace->query(sessionName, properties);
    return {properties.eventsLost, properties.namesLost};
}

} // namespace Velmor
