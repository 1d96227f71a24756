// The report of the collector's state for a collector of metrics.

#include "programs/collectors/agent/Win32/Runtally/status/StatusReport.h"

#include <cstdio>

namespace Velmor {

namespace {
/// One family of figures after the other; their names end in the unit.
class MetricsText {
public:
    void begin(std::string_view name, std::string_view type, std::string_view help) {
        name_ = "velmor_runtally_" + std::string(name);
        text_ += "# HELP " + name_ + " " + std::string(help) + "\n# TYPE " + name_ + " " + std::string(type) + "\n";
    }
    /// `label` as `name="value"`, or empty.
    void add(const std::string& label, const std::string& value) {
        text_ += name_ + (label.empty() ? "" : "{" + label + "}") + " " + value + "\n";
    }
    template <typename Number>
    void one(std::string_view name, std::string_view type, std::string_view help, Number value) {
        begin(name, type, help);
        add("", std::to_string(value));
    }
    std::string take() { return std::move(text_); }

private:
    std::string name_;
    std::string text_;
};

std::string label(std::string_view name, std::string_view value) {
    return std::string(name) + "=\"" + std::string(value) + "\""; // the values are words of ours
}

constexpr const char* gauge = "gauge";
constexpr const char* counter = "counter";

void addRecords(MetricsText& text, const StatusReport& report) {
    text.begin("records_written_total", counter, "Records taken to be written, by kind.");
    for (const auto& records : report.records)
        text.add(label("kind", records.kind), std::to_string(records.inAll));
    text.begin("last_delivery_timestamp_seconds", gauge, "When the last data file of a kind was handed over.");
    for (const auto& records : report.records)
        text.add(label("kind", records.kind), std::to_string(records.lastDelivery));
}

void addLosses(MetricsText& text, const StatusReport& report) {
    text.begin("lost_total", counter, "What could not be recorded or handed over, by cause.");
    for (size_t i = 0; i < LossBook::causes; ++i)
        text.add(label("cause", LossBook::nameOf(static_cast<LossBook::Cause>(i))),
                 std::to_string(report.losses.at(i).count));
}

void addWorkers(MetricsText& text, const StatusReport& report) {
    text.begin("worker_restarts_total", counter, "Restarts of a worker thread that was down.");
    for (const auto& worker : report.workers)
        text.add(label("worker", worker.name), std::to_string(worker.restarts));
    text.begin("worker_kills_total", counter, "Ends of a worker thread by force.");
    for (const auto& worker : report.workers)
        text.add(label("worker", worker.name), std::to_string(worker.kills));
}

void addSources(MetricsText& text, const StatusReport& report) {
    text.begin("source_on", gauge, "1 if a source of processes is on.");
    for (const auto& source : report.sources)
        text.add(label("source", source.name), source.isOn ? "1" : "0");
    text.begin("source_lacking", gauge, "1 if a source lacks a right.");
    for (const auto& source : report.sources)
        text.add(label("source", source.name), source.lacks.empty() ? "0" : "1");
}
} // namespace

std::string toMetrics(const StatusReport& report) {
    MetricsText text;
    text.begin("build_info", gauge, "The version of the collector.");
    text.add(label("version", VELMOR_VERSION), "1");
    text.one("healthy", gauge, "1 if nothing was lost and no source lacks a right.", report.isWell() ? 1 : 0);
    text.one("start_time_seconds", gauge, "When the collector started, in seconds since 1970.", report.started);
    addSources(text, report);
    text.one("tracked_processes", gauge, "Processes that run and are tracked.", report.tracked);
    addRecords(text, report);
    text.one("data_files", gauge, "Data files that have not been taken away.", report.dataFiles.count);
    text.one("data_files_bytes", gauge, "Their size.", report.dataFiles.bytes);
    if (report.dataFiles.freeSpace)
        text.one("data_directory_free_bytes", gauge, "Room on the file system of the data directory.",
                 *report.dataFiles.freeSpace);
    addLosses(text, report);
    addWorkers(text, report);
    text.one("processor_seconds_total", counter, "Processor time of the collector.", report.ownUse.processorSeconds);
    text.one("resident_memory_bytes", gauge, "Main memory of the collector.", report.ownUse.memory);
    text.one("open_handles", gauge, "Files and other handles that the collector has open.", report.ownUse.handles);
    return text.take();
}

} // namespace Velmor
