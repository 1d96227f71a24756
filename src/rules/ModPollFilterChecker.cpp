#include "rules/ModPollFilterChecker.h"

#include "shared/library/common/errors/FileException.h"

namespace Velmor {

bool ModPollFilterChecker::readFile(const std::string& fileName, const FindingSink& sink) {
    try {
        return readRuleBlocks(fileName, blocks_, sink);
    } catch (const FileException&) {
        return false;
    }
}

bool ModPollFilterChecker::isWanted(std::string_view computerName, std::string_view moduleName) const {
    return blocks_.empty() || testRuleBlocks(blocks_, computerName, moduleName);
}

} // namespace Velmor
