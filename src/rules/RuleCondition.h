#pragma once

#include "shared/library/common/time/DateTime.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Velmor {

/// What a condition looks at. The numbers are those by which facts and conditions meet.
enum class RuleKey : int32_t {
    none = 0,
    before = 1,
    after = 2,
    weekDays = 3,
    beforeTimeOfDay = 4,
    afterTimeOfDay = 5,
    user = 6,
    group = 7,
    project = 8,
    exe = 9,
    app = 10,
    module = 11,
    host = 12,
    os = 13,
    platform = 14,
    domain = 15,
    arch = 16,
    datatype = 17,
    cpu = 18,
    io = 19,
    memory = 20,
    duration = 21,
    ref = 22,
};
constexpr size_t ruleKeyCount = 23; // with `none`

/// The key of a word in a rule file, compared exactly.
std::optional<RuleKey> ruleKeyFromWord(std::string_view word);

/// A condition of a rule, or a fact of a record; which member holds the value hangs on the key.
struct RuleCondition {
    RuleKey key = RuleKey::none;
    std::string text;  // patterns, names, and the facts that they are tested against
    double number = 0; // keys `cpu` to `duration`
    DateTime date{0};  // keys `before` and `after`
    int32_t value = 0; // seconds of the day, or a mask of week days with Monday as the lowest bit
};

} // namespace Velmor
