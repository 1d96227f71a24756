// The report of the collector's state for programs.

#include "programs/collectors/agent/Win32/Runtally/status/StatusReport.h"
#include "shared/library/logger/LogCommons.h"

#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
using nlohmann::json;

json orNull(const std::optional<uint64_t>& number) {
    return number ? json(*number) : json();
}

json moment(int32_t seconds) {
    return seconds != 0 ? json(seconds) : json();
}

json toJson(const ConfigurationInForce::File& file) {
    return {{"path", file.path}, {"size", file.size}, {"modified", file.modified}, {"sha256", file.sha256}};
}

json toJson(const StatusReport::Source& source) {
    return {{"name", source.name}, {"on", source.isOn}, {"lacks", source.lacks}};
}

json toJson(const StatusReport::Records& records) {
    return {{"kind", records.kind},
            {"written", records.inAll},
            {"writtenSinceDelivery", records.sinceDelivery},
            {"lastDelivery", moment(records.lastDelivery)},
            {"nextDelivery", moment(records.nextDelivery)}};
}

json toJson(const StatusReport::DataFiles& files) {
    return {{"count", files.count},
            {"bytes", files.bytes},
            {"oldest", moment(files.oldest)},
            {"freeSpace", orNull(files.freeSpace)}};
}

json toJson(const WorkerBook::Entry& worker) {
    constexpr std::array states{"healthy", "silent", "down"};
    return {{"name", worker.name},
            {"on", worker.isOn},
            {"state", states.at(static_cast<size_t>(worker.state))},
            {"lastSign", moment(worker.lastOk)},
            {"restarts", worker.restarts},
            {"kills", worker.kills}};
}

json toJson(const RecentMessages::Entry& message) {
    return {{"time", message.time},
            {"severity", LogCommons::severityName(message.severity)},
            {"module", message.module},
            {"number", message.number},
            {"text", message.line}};
}

template <typename Rows>
json listOf(const Rows& rows) {
    json list = json::array();
    for (const auto& row : rows)
        list.push_back(toJson(row));
    return list;
}

json toJson(const ConfigurationInForce& configuration) {
    return {{"file", configuration.file()},
            {"since", configuration.since},
            {"hash", configuration.hash},
            {"rules", configuration.rules},
            {"files", listOf(configuration.files)}};
}

json lossesOf(const StatusReport& report) {
    json losses = json::object();
    for (size_t i = 0; i < LossBook::causes; ++i) {
        const LossBook::Entry& loss = report.losses.at(i);
        losses[std::string(LossBook::nameOf(static_cast<LossBook::Cause>(i)))] = {
            {"count", loss.count}, {"first", moment(loss.first)}, {"last", moment(loss.last)}};
    }
    return losses;
}

json objectOf(const StatusReport& report) {
    return {
        {"well", report.isWell()},
        {"sentence", sentenceOf(report)},
        {"version", VELMOR_VERSION},
        {"now", report.now},
        {"started", report.started},
        {"process", report.processId},
        {"mainThread", report.mainThreadId},
        {"configuration", report.isChanging() ? json() : toJson(*report.configuration)},
        {"sources", listOf(report.sources)},
        {"tracked", report.tracked},
        {"waitingForName", orNull(report.unnamed)},
        {"waitingForStart", orNull(report.early)},
        {"records", listOf(report.records)},
        {"dataFiles", report.isChanging() ? json() : toJson(report.dataFiles)},
        {"losses", lossesOf(report)},
        {"workers", listOf(report.workers)},
        {"messages", listOf(report.messages)},
        {"own",
         {{"processorSeconds", report.ownUse.processorSeconds},
          {"memory", report.ownUse.memory},
          {"handles", report.ownUse.handles}}},
    };
}

std::string textOf(const json& object) {
    // Names are bytes of the system's; those that are no UTF-8 are replaced.
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}
} // namespace

std::string toJson(const StatusReport& report) {
    return textOf(objectOf(report));
}

std::string toJson(const StatusReport& report, const std::string& problem) {
    json object = objectOf(report);
    object["problem"] = problem;
    return textOf(object);
}

} // namespace Velmor
