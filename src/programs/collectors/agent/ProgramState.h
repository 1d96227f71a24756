#pragma once

#include "programs/collectors/agent/WorkerBook.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/TimeSpan.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Velmor {

/// The machine's names as records carry them, filled by `getStaticInfo` at each configuration.
struct StaticInfo {
    std::string domain;
    std::string computerName;
    std::string architecture;
    std::string osName;
};

/// The words and values of the whole program. The atomic ones are written and polled by any thread; the others are
/// written while no worker runs.
struct ProgramState {
    std::atomic<uint8_t> quitFlag{0};        // set once when the program is to end, never cleared
    std::atomic<uint8_t> reconfigureFlag{0}; // the configuration is to be read again
    std::atomic<uint32_t> mainThreadId{0};   // where the quit message goes
    std::atomic<bool> isStuck{false};        // the program ends because a hung worker can't be ended
    std::string tempDirectory;
    StaticInfo staticInfo;
    std::string dataDirectory; // where data files lie until they are taken away
    TimeSpan defaultInterval;  // of deliveries, for a data file that has none of its own
    Monopoly deliveryMonopoly; // keeps a delivery by command and a reconfiguration apart
    WorkerBook workers;
    std::string refusal;        // why the last reconfiguration has not put anything in force; the supervisor's
    std::string startupFailure; // what a start-up that failed says to whoever started it: the cause and the remedy
};

ProgramState& programState();

} // namespace Velmor
