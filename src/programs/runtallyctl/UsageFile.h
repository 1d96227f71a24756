#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace Velmor {

/// A usage record of a data file: one slice of the life of one process.
struct UsageEntry {
    int64_t start = 0; // seconds since 1970
    std::string computer;
    std::string executable; // with its directory
    std::string application;
    std::string user; // account without attributes
    std::string timeClass;
    std::string exitCode; // "none" while it ran
    bool isFirst = false; // of its process
    int64_t duration = 0; // seconds
};

/// What a data file holds.
struct UsageFile {
    std::vector<UsageEntry> entries;
    size_t others = 0;                 // records of another kind
    std::vector<std::string> mistakes; // one for each damaged or torn record, with its line
};

/// Reads the usage records of a data file. What can't be read is told in `mistakes`, and the reading goes on with the
/// next line that begins a record.
UsageFile readUsageFile(std::istream& input);

} // namespace Velmor
