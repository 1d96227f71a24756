#pragma once

#include <cstdint>

/// The numbers of the catalogue `agent`, in its order; the wording stands in `agent.mess`.
namespace Velmor::AgentMessage {

enum : int32_t {
    notPrepared = 1,
    fileNotOpened = 2, // or a reply that was not sent
    noDataFile = 3,
    fileNotWritten = 4,
    primeTimeUnreadable = 5,
    catalogueUnreadable = 6,
    threadNotStopped = 7,
    threadNotStarted = 8,
    keyMissing = 9,
    fileNotRenamed = 10,
    threadsNotStarted = 11,
    threadsNotEnded = 12,
    fileNotEnded = 13,
    listenerNotStarted = 15,
    configurationRefused = 16,
    fileGone = 17,
    waitingWritten = 18,
    waitingLost = 19,
    recordsWait = 30,
    leftoverForeign = 31,
    commandTaken = 32,
    commandRefused = 33,
    messagesRefused = 34,
    slotRenewed = 35,
    messagesFellOut = 36,
    configurationFinding = 37,
    furtherFindings = 38,
};

} // namespace Velmor::AgentMessage
