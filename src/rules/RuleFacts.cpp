#include "rules/RuleFacts.h"

namespace Velmor {

RuleCondition& RuleFacts::at(RuleKey key) {
    auto& slot = facts_[static_cast<size_t>(key) - 1];
    slot.emplace().key = key;
    return *slot;
}

void RuleFacts::setText(RuleKey key, std::string_view text) {
    at(key).text = text;
}

void RuleFacts::setNumber(RuleKey key, double number) {
    at(key).number = number;
}

void RuleFacts::setAccount(RuleKey key, const std::map<std::string, std::string>& accounts) {
    for (const auto& [name, value] : accounts) {
        if (name.empty())
            setText(key, value);
        else if (name == "project id")
            setText(RuleKey::project, value);
        else if (name == "user id")
            setText(RuleKey::user, value);
    }
}

const RuleCondition* RuleFacts::find(RuleKey key) const {
    const auto& slot = facts_[static_cast<size_t>(key) - 1];
    return slot ? &*slot : nullptr;
}

} // namespace Velmor
