#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// A record of any kind, taken apart. This reader is written from docs/file-formats.md, and shares nothing with the
/// programs.
struct RecordLines {
    std::vector<std::string> fields;   // of the first line
    std::vector<std::string> measures; // of the second

    int32_t start() const { return std::stoi(fields[0].substr(2)); }
    double measure(size_t place) const { return std::stod(measures.at(place)); }
    bool has(const std::string& field) const;
};

/// A usage record.
struct UsageLine {
    int32_t start = 0;
    std::string executable;
    std::string application;
    std::string directory;
    std::string account;
    std::string exitCode;
    bool isFirst = false;
    int32_t duration = 0;

    int32_t end() const { return start + duration; }
    auto operator<=>(const UsageLine&) const = default;
};

/// Takes the text of a data file apart. Throws for a text that isn't whole records; of a file that is being written the
/// end may be torn.
std::vector<RecordLines> parseLines(const std::string& text, bool mayBeTorn = false);
std::vector<UsageLine> parseRecords(const std::string& text, bool mayBeTorn = false);

} // namespace Velmor
