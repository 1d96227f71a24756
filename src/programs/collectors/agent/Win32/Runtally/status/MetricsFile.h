#pragma once

#include "shared/library/common/time/ReportLimit.h"

#include <string>

namespace Velmor {

/// The file that a collector of metrics reads.
class MetricsFile {
public:
    /// Replaces the file in one step. What keeps it from being written is told at once, and then once a minute.
    void replace(const std::string& path, const std::string& text);

private:
    ReportLimit failures_;
};

} // namespace Velmor
