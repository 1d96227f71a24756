#pragma once

#include "shared/library/common/errors/Findings.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

enum class BlockStatus : int32_t { none = 0, plus = 1, minus = 2 };

/// A block of a file of name patterns: a line with "+" or "-" and perhaps a host pattern, and one pattern on each line
/// behind it. Names ahead of the first such line form a block without a status.
struct ProcessRuleBlock {
    BlockStatus status = BlockStatus::none;
    std::string host; // pattern; an empty one fits no host
    std::set<std::string> names;
};
using ProcessRuleBlocks = std::vector<ProcessRuleBlock>;

/// Appends the blocks of a file that have names. False if the file is absent or empty. Throws FileException if it can't
/// be read; the blocks read until then stay. Tells the sink what does nothing, or else than it looks.
bool readRuleBlocks(const std::string& fileName, ProcessRuleBlocks& blocks, const FindingSink& sink = {});

/// The answer of the first block that decides, false if none does; case plays no part. A block decides on the names
/// that it lists: "+" says yes on the hosts that it names; "-" says no there, and yes on all others.
bool testRuleBlocks(const ProcessRuleBlocks& blocks, std::string_view computerName, std::string_view name);

} // namespace Velmor
