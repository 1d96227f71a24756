#include "programs/collectors/agent/Win32/Runtally/ConfigurationFiles.h"

#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"

#include <limits>

namespace Velmor {

namespace {
constexpr const char* defaultFilter = "/runtally_modpoller.conf";
constexpr const char* defaultCounters = "Runtally_Counters.conf";
constexpr const char* defaultPerformanceRules = "Runtally_ProcessRules.conf";
constexpr const char* mappingsFile = "components/appmapping.conf";

std::string installDirectory() {
    std::string directory;
    if (getResourceValue("InstallDir", directory) != ResourceResult::success)
        directory = FileOps::getCurrentDirectory();
    FileUtils::normalisePath(directory);
    FileUtils::addSeparator(directory);
    return directory;
}
} // namespace

ConfigurationFiles::ConfigurationFiles(const ConfReader& conf) {
    std::string directory;
    getResourceValue("ConfigurationDir", directory);
    const auto named = [&](const char* key, const std::string& otherwise) {
        std::string name;
        conf.getFileName(key, name);
        return name.empty() ? otherwise : name;
    };
    rules = named(ConfigurationKey::rules, "");
    filter = named(ConfigurationKey::filter, directory + defaultFilter);
    counters = named(ConfigurationKey::counters, directory + defaultCounters);
    performanceRules = named(ConfigurationKey::performanceRules, directory + defaultPerformanceRules);
    if (conf.getDirName("Velmor.directories.conf", mappings) == ConfReader::FOUND)
        mappings += mappingsFile;
}

std::string dataDirectoryOf(const ConfReader& conf) {
    std::string directory;
    if (conf.getDirName("runtally.working-dir", directory) != ConfReader::FOUND)
        directory = installDirectory() + "Log" + "\\" + "temp" + "\\" + "Runtally";
    FileUtils::normalisePath(directory);
    FileUtils::addSeparator(directory);
    return directory;
}

bool intervalOf(const ConfReader& conf, std::string_view key, TimeSpan& span) {
    TimeSpanParts parts;
    if (conf.getTimeSpan(key, parts) != ConfReader::FOUND)
        return false;
    constexpr int64_t longest = std::numeric_limits<int32_t>::max();
    const int64_t seconds = ((int64_t{parts.days} * 24 + parts.hours) * 60 + parts.minutes) * 60 + parts.seconds;
    span = TimeSpan(parts);
    return seconds <= longest && span.getSeconds() > 0;
}

} // namespace Velmor
