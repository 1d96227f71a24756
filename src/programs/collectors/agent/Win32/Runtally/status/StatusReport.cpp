#include "programs/collectors/agent/Win32/Runtally/status/StatusReport.h"

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/KernelTrace.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include <algorithm>

namespace Velmor {

namespace {
/// The number of entries of a map, unless its lock is taken.
std::optional<uint64_t> countOf(Monopoly& lock, const ProcessMap& map) {
    bool isResetting = false;
    if (!lock.tryEnforce(isResetting))
        return std::nullopt;
    const MonopolyHold hold(lock, std::adopt_lock);
    return map.size();
}

std::vector<StatusReport::Source> sourcesInForce(const std::string& missingRights) {
    const RuntallySettings& settings = runtallyState().settings;
    const bool hasEvents = settings.eventsActive == 1;
    return {{"events", hasEvents, hasEvents ? platform().kernelTrace->shortcomings() : std::string()},
            {"polling", settings.pollingOn, settings.pollingOn ? missingRights : std::string()}};
}

int32_t nextDelivery(const TimeSpan& interval, DateTime now) {
    if (interval.isZero())
        return 0;
    now.alignTo(interval);
    return now.getSeconds() + interval.getSeconds();
}

std::vector<StatusReport::Records> recordsOf(const DateTime& now) {
    std::vector<StatusReport::Records> list;
    for (const auto& [key, entry] : logFileRegistry()) {
        const LogFile::Records& records = entry.file->records();
        list.push_back({key, records.inAll, records.sinceEnd, records.lastEnd, nextDelivery(entry.interval, now)});
    }
    return list;
}

StatusReport::DataFiles waitingFiles() {
    const std::string& directory = programState().dataDirectory;
    StatusReport::DataFiles files;
    std::vector<FoundFile> found;
    uint32_t error = 0;
    platform().fileSystem->scan(directory, "*.data", found, error);
    for (const FoundFile& file : found) {
        ++files.count;
        files.bytes += file.size;
        const auto time = static_cast<int32_t>(file.modified);
        files.oldest = files.oldest == 0 ? time : std::min(files.oldest, time);
    }
    if (uint64_t bytes = 0; platform().fileSystem->freeSpace(directory, bytes, error))
        files.freeSpace = bytes;
    return files;
}

/// What a new configuration changes. Nothing while one is being put in force.
void addConfigured(StatusReport& report, const ConfigurationInForce& configuration, const std::string& missingRights) {
    Monopoly& lock = programState().deliveryMonopoly;
    bool isResetting = false;
    if (!lock.tryEnforce(isResetting))
        return;
    const MonopolyHold hold(lock, std::adopt_lock);
    report.configuration = configuration;
    report.sources = sourcesInForce(missingRights);
    report.records = recordsOf(DateTime(report.now));
    report.dataFiles = waitingFiles();
}
} // namespace

StatusReport takeStatus(const ConfigurationInForce& configuration, const std::string& missingRights) {
    StatusReport report;
    report.now = platform().clock->now();
    report.started = runtallyState().programStart;
    report.processId = platform().machine->processId();
    report.mainThreadId = programState().mainThreadId;
    addConfigured(report, configuration, missingRights);
    ProcessRegistry& registry = runtallyState().registry;
    report.tracked = registry.trackedCount;
    report.unnamed = countOf(registry.pendingInfoMonopoly, registry.pendingInfoMap);
    report.early = countOf(registry.endedMapMonopoly, registry.endedProcessMap);
    for (size_t i = 0; i < LossBook::causes; ++i)
        report.losses.at(i) = lossBook().entry(static_cast<LossBook::Cause>(i));
    report.workers = programState().workers.entries();
    report.messages = recentMessages().entries();
    report.ownUse = platform().machine->ownUse();
    return report;
}

bool StatusReport::isWell() const {
    const auto isOn = [](const Source& source) { return source.isOn; };
    const auto lacks = [](const Source& source) { return !source.lacks.empty(); };
    const auto isLoss = [](const LossBook::Entry& loss) { return loss.count > 0; };
    const bool hasSource = isChanging() || std::any_of(sources.begin(), sources.end(), isOn);
    return hasSource && std::none_of(sources.begin(), sources.end(), lacks) &&
           std::none_of(losses.begin(), losses.end(), isLoss);
}

namespace {
std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i)
        text += (i == 0 ? "" : i + 1 == parts.size() ? " and " : ", ") + parts[i];
    return text;
}

std::string lossText(const StatusReport& report) {
    std::vector<std::string> parts;
    for (size_t i = 0; i < LossBook::causes; ++i)
        if (const uint64_t count = report.losses.at(i).count; count > 0)
            parts.push_back(std::to_string(count) + " " +
                            std::string(LossBook::describe(static_cast<LossBook::Cause>(i))));
    return parts.empty() ? "nothing was lost" : "lost: " + joined(parts);
}
} // namespace

std::string sentenceOf(const StatusReport& report) {
    if (report.isChanging())
        return "A new configuration is being put in force; " + lossText(report) + ".";
    std::vector<std::string> names;
    bool lacks = false;
    for (const StatusReport::Source& source : report.sources) {
        if (source.isOn)
            names.emplace_back(source.name == "events" ? "kernel events" : source.name);
        lacks = lacks || !source.lacks.empty();
    }
    if (names.empty())
        return "Records nothing, since no source of processes is on.";
    return "Tracks " + std::to_string(report.tracked) + " processes by " + joined(names) + "; " + lossText(report) +
           (lacks ? "; a source lacks rights." : ".");
}

} // namespace Velmor
