#include "rules/IncludeExclude.h"

#include "rules/RuleCheck.h"
#include "rules/RuleFileReader.h"
#include "rules/RuleTest.h"

#include <algorithm>

namespace Velmor {

bool IncludeExclude::load(const std::string& fileName, std::string& errorText, const FindingSink& sink) {
    RuleFileReader reader(rules_, references_, sink);
    const bool isRead = reader.read(fileName, errorText);
    if (isRead && sink)
        tellVainRules(rules_, references_, sink);
    return isRead;
}

bool IncludeExclude::canInclude(std::string_view datatype) const {
    for (const Rule& rule : rules_) {
        if (!canHoldFor(datatype, rule, references_))
            continue;
        if (rule.status == RuleStatus::include)
            return true;
        if (alwaysHoldsFor(datatype, rule))
            return false;
    }
    return false;
}

bool IncludeExclude::isIncluded(const RuleFacts& facts) {
    RuleTest test(references_, facts);
    const auto rule = std::find_if(rules_.begin(), rules_.end(), [&](const Rule& r) { return test.holds(r); });
    if (rule == rules_.end())
        return false;
    matchedLine_.store(rule->line, std::memory_order_relaxed);
    return rule->status == RuleStatus::include;
}

void IncludeExclude::take(IncludeExclude& other) {
    rules_ = std::move(other.rules_);
    references_ = std::move(other.references_);
    matchedLine_ = -1;
}

void IncludeExclude::clear() {
    rules_.clear();
    references_.clear();
    matchedLine_ = -1;
}

} // namespace Velmor
