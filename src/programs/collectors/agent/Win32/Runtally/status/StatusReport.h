#pragma once

#include "platform/Machine.h"
#include "programs/collectors/agent/Win32/Runtally/status/ConfigurationInForce.h"
#include "programs/collectors/agent/WorkerBook.h"
#include "shared/library/common/system/LossBook.h"
#include "shared/library/logger/RecentMessages.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Velmor {

/// How the collector fares at a moment, for whoever asks it, the service manager, and whoever collects metrics. Times
/// are seconds since 1970.
struct StatusReport {
    struct Source {
        std::string name; // "events" or "polling"
        bool isOn = false;
        std::string lacks; // in plain sentences what it can't see, and what to do; empty if all is well
    };
    /// A kind of records, by its word in the configuration.
    struct Records {
        std::string kind;
        uint64_t inAll = 0;
        uint64_t sinceDelivery = 0;
        int32_t lastDelivery = 0; // 0: none yet
        int32_t nextDelivery = 0; // by the schedule; 0 without one
    };
    struct DataFiles {
        uint64_t count = 0;
        uint64_t bytes = 0;
        int32_t oldest = 0;                // when it was last written to; 0 without files
        std::optional<uint64_t> freeSpace; // bytes; none if the system doesn't tell
    };

    int32_t now = 0;
    int32_t started = 0;
    uint32_t processId = 0;
    uint32_t mainThreadId = 0;
    std::optional<ConfigurationInForce> configuration; // while another one is being put in force there is none, nor
    std::vector<Source> sources;                       // any of these
    std::vector<Records> records;
    DataFiles dataFiles;
    uint64_t tracked = 0;
    std::optional<uint64_t> unnamed; // those that wait for a name; none if that is just being changed
    std::optional<uint64_t> early;   // ends that wait for their starts; likewise
    std::array<LossBook::Entry, LossBook::causes> losses{}; // by cause
    std::vector<WorkerBook::Entry> workers;
    std::vector<RecentMessages::Entry> messages;
    OwnUse ownUse;

    bool isChanging() const { return !configuration; }
    /// Whether nothing was lost, and no source lacks anything.
    bool isWell() const;
};

/// Looks at everything. `missingRights` is what the system said at the start. Any
/// thread but one that holds a lock of the collector may ask.
StatusReport takeStatus(const ConfigurationInForce& configuration, const std::string& missingRights);

/// One sentence: what is tracked and how, and what was lost.
std::string sentenceOf(const StatusReport& report);

/// One JSON object on one line.
std::string toJson(const StatusReport& report);

/// Likewise, with what became of a new configuration: `problem` is why it isn't in force, and empty if it is.
std::string toJson(const StatusReport& report, const std::string& problem);

/// The figures in the text format that Prometheus reads, with their units.
std::string toMetrics(const StatusReport& report);

} // namespace Velmor
