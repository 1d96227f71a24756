#pragma once

#include "rules/RuleKeys.h"
#include "shared/library/common/time/DateTime.h"

#include <cstdint>
#include <string>

namespace Velmor {

/// A condition of a rule, or a fact of a record; which member holds the value hangs on the key.
struct RuleCondition {
    RuleKey key = RuleKey::none;
    std::string text;  // patterns, names, and the facts that they are tested against
    double number = 0; // of kind `number`
    DateTime date{0};  // of kind `date`
    int32_t line = 0;  // of the file; 0 for a fact
    int32_t value = 0; // seconds of the day, or a mask of week days with Monday as the lowest bit
};

} // namespace Velmor
