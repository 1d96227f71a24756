#pragma once

#include "rules/RuleCondition.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Velmor {

/// What is known of a record that is about to be written, at most one fact for each key, and the moment of the test.
class RuleFacts {
public:
    /// Notes the present time, which nothing changes later, and the first fact.
    RuleFacts(RuleKey key, std::string_view text) { setText(key, text); }

    /// A later fact of a key replaces an earlier one.
    void setText(RuleKey key, std::string_view text);
    void setNumber(RuleKey key, double number);

    /// Sets what a user text with attributes says: its part without a name sets `key`, "project id" the project and
    /// "user id" the user, in the order of the names; other names are passed over.
    void setAccount(RuleKey key, const std::map<std::string, std::string>& accounts);

    /// The fact of a key; null if there is none.
    const RuleCondition* find(RuleKey key) const;

    const DateTime& getTime() const { return time_; }

private:
    RuleCondition& at(RuleKey key);

    std::array<std::optional<RuleCondition>, ruleWords.size()> facts_;
    DateTime time_;
};

} // namespace Velmor
