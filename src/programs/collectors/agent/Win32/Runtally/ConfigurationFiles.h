#pragma once

#include "shared/library/common/configuration/ConfReader.h"

#include <string>
#include <string_view>

namespace Velmor {

/// Keys that name files, which are asked for in several places.
namespace ConfigurationKey {
constexpr const char* rules = "runtally.include-exclude";
constexpr const char* filter = "runtally.logging.module-data.interval.filter";
constexpr const char* counters = "runtally.logging.performance-monitor.counters";
constexpr const char* performanceRules = "runtally.logging.performance-monitor.rules";
} // namespace ConfigurationKey

/// The files that a configuration names, or has by default.
struct ConfigurationFiles {
    explicit ConfigurationFiles(const ConfReader& conf);

    std::string rules; // empty: none is named
    std::string filter;
    std::string counters;
    std::string performanceRules;
    std::string mappings; // empty: their directory isn't known
};

/// Where data files are written.
std::string dataDirectoryOf(const ConfReader& conf);

/// A configured interval; false if there is none above 0 seconds.
bool intervalOf(const ConfReader& conf, std::string_view key, TimeSpan& span);

} // namespace Velmor
