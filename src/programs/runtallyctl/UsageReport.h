#pragma once

#include <string>
#include <vector>

namespace Velmor {

/// Prints the usage of applications by user, from data files and directories of them; as JSON if asked for. Returns the
/// exit status: 0, or 2 if a file or a record couldn't be read, which standard error names.
int printUsage(const std::vector<std::string>& paths, bool asJson);

/// Prints the records one by one; otherwise as `printUsage`.
int printRecords(const std::vector<std::string>& paths, bool asJson);

} // namespace Velmor
