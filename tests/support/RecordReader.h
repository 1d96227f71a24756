#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// A usage record, taken apart. This reader is written from docs/file-formats.md, and shares nothing with the programs.
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
};

/// Takes the usage records of a data file's text apart. Throws for a text that isn't whole records.
std::vector<UsageLine> parseRecords(const std::string& text);

} // namespace Velmor
