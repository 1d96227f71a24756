#pragma once

#include "rules/ProcessRuleBlocks.h"

#include <string>
#include <string_view>

namespace Velmor {

/// Decides which processes the performance monitor watches. Filled during the configuration; then any thread may ask.
class ProcessRulesChecker {
public:
    virtual ~ProcessRulesChecker() = default;

    /// Adds the blocks of a file; false if it is absent, empty or can't be read.
    bool readFile(const std::string& fileName, const FindingSink& sink = {});
    const ProcessRuleBlocks& blocks() const { return blocks_; }

    /// Whether the process of this executable is to be watched on this computer; the directories play no part. Without
    /// rules none is.
    bool isMonitored(std::string_view computerName, std::string_view executable) const;

    /// Drops all blocks, as a reconfiguration needs it.
    void clear() { blocks_.clear(); }

private:
    ProcessRuleBlocks blocks_; // in file order
};

} // namespace Velmor
