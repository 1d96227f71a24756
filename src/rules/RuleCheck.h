#pragma once

#include "rules/IncludeExclude.h"
#include "shared/library/common/errors/Findings.h"

#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Why a rule can hold for no record, now or later, whatever the machine; empty if it can.
std::string whyItNeverHolds(const Rule& rule, const IncludeExclude::References& references);

/// Whether a rule can hold for a record of that datatype, and whether it holds for every one.
bool canHoldFor(std::string_view datatype, const Rule& rule, const IncludeExclude::References& references);
bool alwaysHoldsFor(std::string_view datatype, const Rule& rule);

/// Tells of rules that never hold, or are never reached, and of "ref:" blocks that are missing, lead back to
/// themselves, or aren't used.
void tellVainRules(const std::vector<Rule>& rules, const IncludeExclude::References& references,
                   const FindingSink& sink);

} // namespace Velmor
