#include "rules/RuleTest.h"

#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"

namespace Velmor {

namespace {
// A block that leads back to itself has no end; deeper than any sensible file it counts as not holding.
constexpr int deepestReference = 32;
constexpr int mostBlocks = 10000; // for one rule: blocks that name each other several times branch at each level

constexpr bool isBetween(RuleKey key, RuleKey first, RuleKey last) {
    return key >= first && key <= last;
}

int32_t secondsOfDay(const DateTimeParts& parts) {
    return (parts.hour * 60 + parts.minute) * 60 + parts.second;
}
} // namespace

bool RuleTest::evaluate(const Rule& rule, bool all, int depth) {
    for (const RuleCondition& condition : rule.conditions) {
        if (isBetween(condition.key, RuleKey::before, RuleKey::afterTimeOfDay)) {
            if (!timeHolds(condition))
                return false;
            continue;
        }
        bool holds = isBetween(condition.key, RuleKey::host, RuleKey::arch) && matchesLocalFact(condition);
        if (!holds && condition.key == RuleKey::ref) {
            const auto block = references_.find(condition.text);
            holds = block != references_.end() && referenceHolds(block->second, depth);
        } else if (!holds) {
            const RuleCondition* fact = facts_.find(condition.key);
            holds = fact && matchesFact(condition, *fact);
        }
        if (holds != all)
            return holds;
    }
    return all;
}

bool RuleTest::referenceHolds(const Rule& block, int depth) {
    return depth < deepestReference && ++blocksTried_ <= mostBlocks && evaluate(block, false, depth + 1);
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

bool RuleTest::matchesLocalFact(const RuleCondition& condition) {
    switch (condition.key) {
    case RuleKey::host:
        return wildcardMatch(condition.text, localFacts().computerName);
    case RuleKey::os:
        return wildcardMatch(condition.text, localFacts().osName);
    case RuleKey::platform:
        return wildcardMatch(condition.text, "windows");
    case RuleKey::domain:
        return wildcardMatch(condition.text, localFacts().domain);
    default:
        return wildcardMatch(condition.text, localFacts().architecture);
    }
}

bool RuleTest::matchesFact(const RuleCondition& condition, const RuleCondition& fact) const {
    if (!isBetween(condition.key, RuleKey::cpu, RuleKey::duration))
        return wildcardMatch(condition.text, fact.text);
    return condition.number >= 0 ? fact.number >= condition.number : fact.number < -condition.number;
}

const RuleTest::LocalFacts& RuleTest::localFacts() {
    if (!localFacts_) {
        localFacts_.emplace();
        getStaticInfo(localFacts_->domain, localFacts_->computerName, localFacts_->architecture, localFacts_->osName);
    }
    return *localFacts_;
}

const DateTimeParts& RuleTest::localTime() {
    if (!localTime_)
        localTime_ = facts_.getTime().toLocal(facts_.getTime().getDateTime());
    return *localTime_;
}

} // namespace Velmor
