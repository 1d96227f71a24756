#include "rules/ProcessRulesChecker.h"

#include "shared/library/common/files/FileUtils.h"

namespace Velmor {

bool ProcessRulesChecker::readFile(const std::string& fileName, const FindingSink& sink) {
    try {
        return readRuleBlocks(fileName, blocks_, sink);
    } catch (...) {
        return false;
    }
}

bool ProcessRulesChecker::isMonitored(std::string_view computerName, std::string_view executable) const {
    return testRuleBlocks(blocks_, computerName, FileUtils::getBaseName(executable));
}

} // namespace Velmor
