#pragma once

#include "rules/ProcessRuleBlocks.h"

#include <string>
#include <string_view>

namespace Velmor {

/// Decides which modules are logged. Filled during the configuration; then any thread may ask.
class ModPollFilterChecker {
public:
    virtual ~ModPollFilterChecker() = default;

    /// Adds the blocks of a file; false if it is absent, empty or can't be read.
    bool readFile(const std::string& fileName, const FindingSink& sink = {});

    /// Whether a module is to be logged on this computer; its name is compared as it stands. Without rules every one
    /// is.
    bool isWanted(std::string_view computerName, std::string_view moduleName) const;

    /// Drops all blocks, as a reconfiguration needs it.
    void clear() { blocks_.clear(); }

private:
    ProcessRuleBlocks blocks_; // in file order
};

} // namespace Velmor
