#include "programs/runtallyctl/UsageReport.h"

#include "programs/runtallyctl/UsageFile.h"
#include "shared/library/common/DateTime.h"
#include "shared/library/common/TimeSpan.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
constexpr int readFailed = 2;

std::vector<std::string> filesOf(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        if (!std::filesystem::is_directory(path)) {
            files.push_back(path);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path))
            if (entry.path().extension() == ".data")
                files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// Reads all files; what can't be read goes to standard error and makes the answer false.
bool readAll(const std::vector<std::string>& paths, std::vector<UsageEntry>& entries) {
    bool whole = true;
    for (const std::string& path : filesOf(paths)) {
        std::ifstream input(path, std::ios::binary);
        if (!input) {
            std::cerr << path << ": can't be read\n";
            whole = false;
            continue;
        }
        UsageFile file = readUsageFile(input);
        for (const std::string& mistake : file.mistakes)
            std::cerr << path << ", " << mistake << '\n';
        whole = whole && file.mistakes.empty();
        std::move(file.entries.begin(), file.entries.end(), std::back_inserter(entries));
    }
    return whole;
}

struct Total {
    std::string application;
    std::string user;
    size_t processes = 0;
    int64_t seconds = 0;
};

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
    for (auto& [key, total] : totals)
        sorted.push_back(std::move(total));
    std::sort(sorted.begin(), sorted.end(), [](const Total& a, const Total& b) { return a.seconds > b.seconds; });
    return sorted;
}

std::string clockText(int64_t seconds) {
    std::string text = std::to_string(seconds / 3600) + ":";
    for (const int64_t part : {seconds / 60 % 60, seconds % 60})
        text += (part < 10 ? "0" : "") + std::to_string(part) + ":";
    text.pop_back();
    return text;
}

std::string timeText(int64_t seconds) {
    return DateTime(static_cast<int32_t>(seconds)).toString(false, false);
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
} // namespace

int printUsage(const std::vector<std::string>& paths, bool asJson) {
    std::vector<UsageEntry> entries;
    const bool whole = readAll(paths, entries);
    const std::vector<Total> totals = sumUp(entries);
    if (asJson) {
        printJson(totals);
        return whole ? 0 : readFailed;
    }
    size_t applicationWidth = std::string("Application").size();
    size_t userWidth = std::string("User").size();
    for (const Total& total : totals) {
        applicationWidth = std::max(applicationWidth, total.application.size());
        userWidth = std::max(userWidth, total.user.size());
    }
    const auto row = [&](const std::string& application, const std::string& user, const std::string& processes,
                         const std::string& time) {
        std::cout << std::left << std::setw(static_cast<int>(applicationWidth) + 2) << application
                  << std::setw(static_cast<int>(userWidth) + 2) << user << std::right << std::setw(10) << processes
                  << std::setw(12) << time << '\n';
    };
    row("Application", "User", "Processes", "Time");
    for (const Total& total : totals)
        row(total.application, total.user, std::to_string(total.processes), clockText(total.seconds));
    return whole ? 0 : readFailed;
}

int printRecords(const std::vector<std::string>& paths, bool asJson) {
    std::vector<UsageEntry> entries;
    const bool whole = readAll(paths, entries);
    if (asJson) {
        printJson(entries);
        return whole ? 0 : readFailed;
    }
    for (const UsageEntry& entry : entries)
        std::cout << timeText(entry.start) << ' ' << std::setw(8) << entry.duration << "s "
                  << (entry.isFirst ? "first " : "      ") << entry.application << "  " << entry.executable << "  "
                  << entry.user << "  exit " << entry.exitCode << '\n';
    return whole ? 0 : readFailed;
}

} // namespace Velmor
