// The words and values of rule files.

#include "rules/RuleFileReader.h"

#include "shared/library/common/errors/Exception.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/DateTime.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>

namespace Velmor {

namespace {
// In the order of the mask's bits.
constexpr std::array<std::string_view, 7> weekDays{"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

constexpr size_t unlimited = std::numeric_limits<int32_t>::max();
constexpr size_t timeOfDayParts = 3;
constexpr int32_t mostOfAPart = 1000000; // more hours than any day has
} // namespace

bool RuleFileReader::readValue(RuleCondition& condition, const std::string& value) {
    switch (kindOf(condition.key)) {
    case RuleKind::date:
        return readDate(condition, value);
    case RuleKind::weekDays:
        return readWeekDays(condition, value);
    case RuleKind::timeOfDay:
        return readTimeOfDay(condition, value);
    case RuleKind::number:
        return readNumber(condition, value);
    default:
        condition.text = value;
        return true;
    }
}

bool RuleFileReader::readDate(RuleCondition& condition, const std::string& value) {
    try {
        condition.date = DateTime(DateTime::fromString(value));
        return true;
    } catch (const Exception&) {
        return fail("Invalid date-time \"", value, "write it as 2030-01-31 or 2030-01-31T12:00:00");
    }
}

bool RuleFileReader::readWeekDays(RuleCondition& condition, const std::string& value) {
    std::vector<std::string> words;
    split(value, ',', words, unlimited);
    for (const std::string& word : words) {
        const auto day = std::find(weekDays.begin(), weekDays.end(), word);
        if (day == weekDays.end())
            return fail("Invalid week day \"", word,
                        hintOr(word, {weekDays.begin(), weekDays.end()}, "write them as mon,tue,wed"));
        condition.value |= 1 << (day - weekDays.begin());
    }
    return true;
}

bool RuleFileReader::readTimeOfDay(RuleCondition& condition, const std::string& value) {
    std::vector<std::string> parts;
    split(value, ':', parts, unlimited);
    const bool readable = parts.size() <= timeOfDayParts && std::all_of(parts.begin(), parts.end(), [](const auto& p) {
                              return p.find_first_not_of("0123456789") == std::string::npos;
                          });
    if (!readable)
        return fail("Invalid time-of-day value \"", value, "write it as 17, 08:30 or 08:30:15");
    parts.resize(timeOfDayParts);
    int64_t seconds = 0;
    for (const std::string& part : parts)
        seconds = seconds * 60 + std::min(toNumber(part), mostOfAPart);
    condition.value = static_cast<int32_t>(std::min<int64_t>(seconds, std::numeric_limits<int32_t>::max()));
    return true;
}

bool RuleFileReader::readNumber(RuleCondition& condition, const std::string& value) {
    if (value.find_first_not_of("-0123456789.") != std::string::npos)
        return fail("Invalid numerical value \"", value, "write digits, perhaps with - before them");
    condition.number = std::atof(value.c_str());
    return true;
}

} // namespace Velmor
