#pragma once

#include "rules/IncludeExclude.h"

#include <optional>
#include <string>

namespace Velmor {

/// The test of one record's facts against rules. What several conditions need of the machine and of the moment is read
/// once for the record.
class RuleTest {
public:
    RuleTest(const IncludeExclude::References& references, const RuleFacts& facts)
        : references_(references), facts_(facts) {}

    /// Whether all conditions of the rule hold.
    bool holds(const Rule& rule) {
        blocksTried_ = 0;
        return allHold(rule);
    }

private:
    /// What the machine itself answers to the keys of kind `machine`.
    struct LocalFacts {
        std::string domain;
        std::string computerName;
        std::string architecture;
        std::string osName;
        std::string platform;
    };

    bool allHold(const Rule& rule);
    bool anyHolds(const Rule& block, int depth);
    bool conditionHolds(const RuleCondition& condition, int depth);
    bool timeHolds(const RuleCondition& condition);
    bool referenceHolds(const RuleCondition& condition, int depth);
    bool factHolds(const RuleCondition& condition) const;
    const std::string& localFact(RuleKey key);
    const LocalFacts& localFacts();
    const DateTimeParts& localTime();

    const IncludeExclude::References& references_;
    const RuleFacts& facts_;
    int blocksTried_ = 0; // "ref:" blocks, for the rule at hand
    std::optional<LocalFacts> localFacts_;
    std::optional<DateTimeParts> localTime_;
};

} // namespace Velmor
