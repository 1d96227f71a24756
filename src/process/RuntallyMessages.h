#pragma once

#include <cstdint>

/// The numbers of the catalogue `runtally`, in its order; the wording stands in `runtally.mess`. They stand here, since
/// processes and the kernel tracer raise some of them.
namespace Velmor::RuntallyMessage {

enum : int32_t {
    // Start-up
    noWorkingDirectory = 1,
    noExeFinder = 5,
    mappingsMistake = 6,
    mappingsUnreadable = 7,
    started = 8,
    notAsAsked = 14, // a second instance, or a system without process events
    noDebugPrivilege = 16,
    fileUnusable = 31,
    rulesUnusable = 34,
    rightsMissing = 40,
    valueKept = 47,
    trackingEnded = 48,
    reconfigurationBrokenOff = 49,
    configurationInForce = 52,

    // Processes
    exitCodeUnknown = 13,
    registryHeld = 23,
    idInUseAgain = 25,
    startInFuture = 26,
    endInFuture = 27,
    timesInverted = 28,
    negativeDuration = 29,
    tableUnreadable = 43,
    processesUnopened = 44,
    exitCodesUnknown = 45,
    changeGivenUp = 46,

    // Records and their files
    noFile = 4,
    eventLogNotWritten = 33,
    metricsNotWritten = 51,

    // Process events
    tracerNotReading = 17,
    sessionTakenOver = 18,
    traceEnded = 19,
    sessionNotStarted = 22,
    monitorUnknownError = 30,
    workerException = 32,
    eventsLost = 41,
    eventsIncomplete = 42,
    namesLost = 50,

    // Memory
    noMemory = 21,
};

} // namespace Velmor::RuntallyMessage
