#include "programs/runtallyctl/UsageReport.h"

#include "programs/runtallyctl/Table.h"
#include "programs/runtallyctl/UsageFile.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/DateTime.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
constexpr int readFailed = 2;

bool complain(const std::string& path, const std::string& text) {
    std::cerr << path << ": " << text << '\n';
    return false;
}

/// Adds the data files that `path` stands for, in the order of their names. False if the directory can't be read.
bool addFiles(const std::string& path, std::vector<std::string>& files) {
    std::error_code failure;
    if (!std::filesystem::is_directory(path, failure)) {
        files.push_back(path);
        return true;
    }
    std::vector<std::string> found;
    std::filesystem::directory_iterator entries(path, failure);
    for (; !failure && entries != std::filesystem::directory_iterator(); entries.increment(failure))
        if (entries->path().extension() == ".data")
            found.push_back(entries->path().string());
    std::sort(found.begin(), found.end());
    std::move(found.begin(), found.end(), std::back_inserter(files));
    return failure ? complain(path, failure.message()) : true;
}

bool readFile(const std::string& path, std::vector<UsageEntry>& entries) {
    std::ifstream input(path, std::ios::binary);
    if (!input)
        return complain(path, "can't be read");
    UsageFile file = readUsageFile(input);
    for (const std::string& mistake : file.mistakes)
        complain(path, mistake);
    std::move(file.entries.begin(), file.entries.end(), std::back_inserter(entries));
    return input.bad() ? complain(path, "can't be read to its end") : file.mistakes.empty();
}

/// Reads all files; what can't be read goes to standard error and makes the answer false.
bool readAll(const std::vector<std::string>& paths, std::vector<UsageEntry>& entries) {
    bool whole = true;
    std::vector<std::string> files;
    for (const std::string& path : paths)
        whole = addFiles(path, files) && whole;
    for (const std::string& file : files)
        whole = readFile(file, entries) && whole;
    return whole;
}

struct Total {
    std::string application;
    std::string user;
    size_t processes = 0;
    int64_t seconds = 0;
};

/// The usage of each application by each user, the longest first.
std::vector<Total> sumUp(const std::vector<UsageEntry>& entries) {
    std::map<std::pair<std::string, std::string>, Total> totals;
    for (const UsageEntry& entry : entries) {
        Total& total = totals[{entry.application, entry.user}];
        total.application = entry.application;
        total.user = entry.user;
        total.processes += entry.isFirst ? 1 : 0;
        total.seconds += entry.duration;
    }
    std::vector<Total> sorted;
    sorted.reserve(totals.size());
    for (auto& [key, total] : totals)
        sorted.push_back(std::move(total));
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Total& a, const Total& b) { return a.seconds > b.seconds; });
    return sorted;
}

/// Hours, minutes and seconds, as 12:34:56.
std::string clockText(int64_t seconds) {
    std::string text = std::to_string(seconds / 3600);
    for (const int64_t part : {seconds / 60 % 60, seconds % 60})
        text += (part < 10 ? ":0" : ":") + std::to_string(part);
    return text;
}

nlohmann::json toJson(const Total& total) {
    return {{"application", total.application},
            {"user", total.user},
            {"processes", total.processes},
            {"seconds", total.seconds}};
}

nlohmann::json toJson(const UsageEntry& entry) {
    return {{"start", entry.start},           {"duration", entry.duration},
            {"computer", entry.computer},     {"application", entry.application},
            {"executable", entry.executable}, {"user", entry.user},
            {"timeClass", entry.timeClass},   {"exitCode", entry.exitCode},
            {"first", entry.isFirst}};
}

template <typename Rows>
void printJson(const Rows& rows) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& row : rows)
        list.push_back(toJson(row));
    // Names are bytes of the system's; those that are no UTF-8 are replaced.
    std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

void printTable(const std::vector<Total>& totals) {
    Table table({Align::left, Align::left, Align::right, Align::right});
    table.add({"Application", "User", "Processes", "Time"});
    for (const Total& total : totals)
        table.add({printable(total.application), printable(total.user), std::to_string(total.processes),
                   clockText(total.seconds)});
    table.print(std::cout);
}

void printTable(const std::vector<UsageEntry>& entries) {
    Table table({Align::left, Align::right, Align::left, Align::left, Align::left, Align::left, Align::left});
    table.add({"Start", "Seconds", "Slice", "Application", "User", "Exit", "Executable"});
    for (const UsageEntry& entry : entries)
        table.add({timeText(entry.start), std::to_string(entry.duration), entry.isFirst ? "first" : "later",
                   printable(entry.application), printable(entry.user), entry.exitCode, printable(entry.executable)});
    table.print(std::cout);
}

template <typename Rows>
void print(const Rows& rows, bool asJson) {
    if (asJson)
        printJson(rows);
    else
        printTable(rows);
}
} // namespace

int printUsage(const std::vector<std::string>& paths, bool asJson) {
    std::vector<UsageEntry> entries;
    const bool whole = readAll(paths, entries);
    print(sumUp(entries), asJson);
    return whole ? 0 : readFailed;
}

int printRecords(const std::vector<std::string>& paths, bool asJson) {
    std::vector<UsageEntry> entries;
    const bool whole = readAll(paths, entries);
    print(entries, asJson);
    return whole ? 0 : readFailed;
}

} // namespace Velmor
