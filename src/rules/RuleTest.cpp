#include "rules/RuleTest.h"

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>

namespace Velmor {

namespace {
// A block that leads back to itself has no end; deeper than any sensible file it counts as not holding.
constexpr int deepestReference = 32;
constexpr int mostBlocks = 10000; // for one rule: blocks that name each other several times branch at each level

int32_t secondsOfDay(const DateTimeParts& parts) {
    return (parts.hour * 60 + parts.minute) * 60 + parts.second;
}
} // namespace

bool RuleTest::allHold(const Rule& rule) {
    return std::all_of(rule.conditions.begin(), rule.conditions.end(),
                       [&](const RuleCondition& condition) { return conditionHolds(condition, 0); });
}

/// A time that doesn't hold ends the search; one that does decides nothing.
bool RuleTest::anyHolds(const Rule& block, int depth) {
    for (const RuleCondition& condition : block.conditions) {
        const bool holds = conditionHolds(condition, depth);
        if (holds != isTime(kindOf(condition.key)))
            return holds;
    }
    return false;
}

bool RuleTest::conditionHolds(const RuleCondition& condition, int depth) {
    switch (kindOf(condition.key)) {
    case RuleKind::date:
    case RuleKind::weekDays:
    case RuleKind::timeOfDay:
        return timeHolds(condition);
    case RuleKind::reference:
        return referenceHolds(condition, depth);
    case RuleKind::machine:
        return wildcardMatch(condition.text, localFact(condition.key)) || factHolds(condition);
    default:
        return factHolds(condition);
    }
}

bool RuleTest::referenceHolds(const RuleCondition& condition, int depth) {
    const auto block = references_.find(condition.text);
    return block != references_.end() && depth < deepestReference && ++blocksTried_ <= mostBlocks &&
           anyHolds(block->second, depth + 1);
}

bool RuleTest::timeHolds(const RuleCondition& condition) {
    switch (condition.key) {
    case RuleKey::before:
        return facts_.getTime() < condition.date;
    case RuleKey::after:
        return facts_.getTime() > condition.date;
    case RuleKey::weekDays:
        return (condition.value & (1 << localTime().weekday)) != 0;
    case RuleKey::beforeTimeOfDay:
        return secondsOfDay(localTime()) < condition.value;
    default:
        return secondsOfDay(localTime()) > condition.value;
    }
}

const std::string& RuleTest::localFact(RuleKey key) {
    switch (key) {
    case RuleKey::host:
        return localFacts().computerName;
    case RuleKey::os:
        return localFacts().osName;
    case RuleKey::platform:
        return localFacts().platform;
    case RuleKey::domain:
        return localFacts().domain;
    default:
        return localFacts().architecture;
    }
}

bool RuleTest::factHolds(const RuleCondition& condition) const {
    const RuleCondition* fact = facts_.find(condition.key);
    if (!fact)
        return false;
    if (kindOf(condition.key) != RuleKind::number)
        return wildcardMatch(condition.text, fact->text);
    return condition.number >= 0 ? fact->number >= condition.number : fact->number < -condition.number;
}

const RuleTest::LocalFacts& RuleTest::localFacts() {
    if (!localFacts_) {
        localFacts_.emplace();
        getStaticInfo(localFacts_->domain, localFacts_->computerName, localFacts_->architecture, localFacts_->osName);
        localFacts_->platform = platform().machine->platformWord();
    }
    return *localFacts_;
}

const DateTimeParts& RuleTest::localTime() {
    if (!localTime_)
        localTime_ = facts_.getTime().toLocal(facts_.getTime().getDateTime());
    return *localTime_;
}

} // namespace Velmor
