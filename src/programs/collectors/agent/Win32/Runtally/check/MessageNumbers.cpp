#include "programs/collectors/agent/Win32/Runtally/check/MessageNumbers.h"

#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "shared/library/common/configuration/ConfigurationMessages.h"

#include <array>

namespace Velmor {

namespace {
constexpr auto agentNumbers = [] {
    using namespace AgentMessage;
    return std::to_array<int32_t>({notPrepared,         fileNotOpened,        noDataFile,           fileNotWritten,
                                   primeTimeUnreadable, catalogueUnreadable,  threadNotStopped,     threadNotStarted,
                                   keyMissing,          fileNotRenamed,       threadsNotStarted,    threadsNotEnded,
                                   fileNotEnded,        listenerNotStarted,   configurationRefused, fileGone,
                                   waitingWritten,      waitingLost,          recordsWait,          leftoverForeign,
                                   commandTaken,        commandRefused,       messagesRefused,      slotRenewed,
                                   messagesFellOut,     configurationFinding, furtherFindings});
}();

constexpr auto runtallyNumbers = [] {
    using namespace RuntallyMessage;
    return std::to_array<int32_t>({noWorkingDirectory,
                                   noExeFinder,
                                   mappingsMistake,
                                   mappingsUnreadable,
                                   started,
                                   notAsAsked,
                                   noDebugPrivilege,
                                   fileUnusable,
                                   rulesUnusable,
                                   rightsMissing,
                                   valueKept,
                                   trackingEnded,
                                   reconfigurationBrokenOff,
                                   configurationInForce,
                                   exitCodeUnknown,
                                   registryHeld,
                                   idInUseAgain,
                                   startInFuture,
                                   endInFuture,
                                   timesInverted,
                                   negativeDuration,
                                   tableUnreadable,
                                   processesUnopened,
                                   exitCodesUnknown,
                                   changeGivenUp,
                                   noFile,
                                   eventLogNotWritten,
                                   tracerNotReading,
                                   sessionTakenOver,
                                   traceEnded,
                                   sessionNotStarted,
                                   monitorUnknownError,
                                   workerException,
                                   eventsLost,
                                   eventsIncomplete,
                                   namesLost,
                                   metricsNotWritten,
                                   noMemory});
}();

constexpr auto configurationNumbers = [] {
    using namespace ConfigurationMessage;
    return std::to_array<int32_t>({fileUnreadable, fileMistake, badReference, buildDropped});
}();

} // namespace

std::span<const int32_t> messageNumbers(int32_t module) {
    switch (module) {
    case LogModule::agent:
        return agentNumbers;
    case LogModule::runtally:
        return runtallyNumbers;
    case LogModule::configuration:
        return configurationNumbers;
    default:
        return {};
    }
}

} // namespace Velmor
