#include "shared/library/common/time/TimeSpan.h"

#include "shared/library/common/errors/TimeException.h"

#include <cstdlib>

namespace Velmor {

namespace {
constexpr int32_t secondsPerMinute = 60;
constexpr int32_t secondsPerHour = 3600;
constexpr int32_t secondsPerDay = 86400;
constexpr int32_t mostDays = 24855;

/// Built in unsigned arithmetic: a value too large for the field wraps, as nothing checks it on the way here.
int32_t combine(int32_t days, int32_t hours, int32_t minutes, int32_t seconds) {
    const uint32_t wide =
        ((static_cast<uint32_t>(days) * 24U + static_cast<uint32_t>(hours)) * 60U + static_cast<uint32_t>(minutes)) *
            60U +
        static_cast<uint32_t>(seconds);
    return static_cast<int32_t>(wide);
}

int32_t negated(int32_t value) {
    return static_cast<int32_t>(0U - static_cast<uint32_t>(value));
}

void require(bool inRange, TimeCode code, int32_t line) {
    if (!inRange)
        throw TimeException(code, "", __FILE__, line);
}

/// The number directly before the first `letter`; 0 without letter or digits.
int32_t numberBefore(std::string_view text, char letter) {
    const size_t end = text.find(letter);
    if (end == std::string_view::npos)
        return 0;
    size_t begin = end;
    while (begin > 0 && TimeBase::isDigit(text, static_cast<int32_t>(begin - 1)))
        --begin;
    return std::atoi(std::string(text.substr(begin, end - begin)).c_str());
}

void appendField(std::string& text, uint32_t number, char letter) {
    if (number > 0)
        text += std::to_string(number) + letter;
}
} // namespace

TimeSpan::TimeSpan(const TimeSpanParts& parts)
    : TimeBase(combine(parts.days, parts.hours, parts.minutes, parts.seconds)) {
    if (parts.negative)
        seconds_ = negated(seconds_);
}

void TimeSpan::set(int32_t days, int32_t hours, int32_t minutes, int32_t seconds) {
    require(days >= -mostDays && days <= mostDays, TM_DAYS, __LINE__);
    require(hours >= 0 && hours <= 23, TM_HOURS, __LINE__);
    require(minutes >= 0 && minutes <= 59, TM_MINUTES, __LINE__);
    require(seconds >= 0 && seconds <= 59, TM_SECONDS, __LINE__);
    seconds_ = combine(days, hours, minutes, seconds);
}

TimeSpanParts TimeSpan::getParts() const {
    const auto magnitude = static_cast<uint32_t>(seconds_ < 0 ? negated(seconds_) : seconds_);
    TimeSpanParts parts;
    parts.days = static_cast<int32_t>(magnitude / secondsPerDay);
    parts.hours = static_cast<int32_t>(magnitude / secondsPerHour % 24);
    parts.minutes = static_cast<int32_t>(magnitude / secondsPerMinute % 60);
    parts.seconds = static_cast<int32_t>(magnitude % 60);
    parts.negative = seconds_ < 0;
    return parts;
}

int32_t TimeSpan::getDays() const {
    return seconds_ / secondsPerDay;
}

std::string TimeSpan::toString() const {
    const TimeSpanParts parts = getParts();
    std::string text = parts.negative ? "P-" : "P";
    appendField(text, static_cast<uint32_t>(parts.days), 'D');
    appendField(text, static_cast<uint32_t>(parts.hours), 'H');
    appendField(text, static_cast<uint32_t>(parts.minutes), 'M');
    appendField(text, static_cast<uint32_t>(parts.seconds), 'S');
    return text == "P" ? "P0" : text;
}

TimeSpanParts TimeSpan::fromString(std::string_view text) {
    TimeSpanParts parts;
    if (text.empty())
        return parts;
    if (text.front() != 'P')
        throw TimeException(TM_INPUT, "Expected 'P' in beginning of time span.", __FILE__, __LINE__);
    parts.negative = text.size() > 1 && text[1] == '-';
    parts.days = numberBefore(text, 'D');
    parts.hours = numberBefore(text, 'H');
    parts.minutes = numberBefore(text, 'M');
    parts.seconds = numberBefore(text, 'S');
    return parts;
}

} // namespace Velmor
