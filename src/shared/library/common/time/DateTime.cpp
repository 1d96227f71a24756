#include "shared/library/common/time/DateTime.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>
#include <atomic>

namespace Velmor {

namespace {
constexpr int32_t defaultTimeZone = DateTime::TZ_UNDEFINED;
std::atomic<int32_t> lastTimeZone{defaultTimeZone}; // the zone given last, for the local view of all values

constexpr int32_t minYear = 1970;
constexpr int32_t maxYear = 2038;
constexpr int64_t maxSeconds = 2147483647;
constexpr uint32_t waitStep = 50; // milliseconds between looks at the clock

DateTimeParts partsOf(const CalendarFields& fields, bool local) {
    DateTimeParts parts;
    parts.year = fields.year;
    parts.month = fields.month;
    parts.day = fields.day;
    parts.weekday = fields.weekday;
    parts.hour = fields.hour;
    parts.minute = fields.minute;
    parts.second = fields.second;
    parts.local = local;
    return parts;
}

/// Seconds since 1970 of fields read as UTC; -1 for a year that can't be held. The minutes may run outside 0 to 59,
/// which is how a zone's offset is applied. The simple leap year rule holds for all years from 1970 to 2038.
int64_t fieldsToSeconds(int32_t year, int32_t month, int32_t day, int32_t hour, int64_t minute, int32_t second) {
    const int32_t y = year - 1900;
    if (static_cast<uint32_t>(y - 70) > 68)
        return -1;
    int64_t days = (y - 70) * 365 + (y - 68) / 4;
    if ((y - 68) % 4 == 0)
        --days; // this year's own leap day comes with its months
    for (int32_t m = 1; m < month; ++m)
        days += DateTime::daysInMonth(m, year);
    return second + 60 * minute + int64_t{3600} * hour + 86400 * (days + day - 1);
}

void appendTwoDigits(std::string& text, int32_t number) {
    text += static_cast<char>('0' + number / 10 % 10);
    text += static_cast<char>('0' + number % 10);
}
} // namespace

const DateTime DateTime::minDate(0);
const DateTime DateTime::maxDate(2147483647);
const TimeZoneDef TimeZoneDef::atStart;

TimeZoneDef::TimeZoneDef() : offset_(DateTime().getTimeZone(false)) {}

DateTime::DateTime() : TimeBase(0), timeZone_(defaultTimeZone) {
    setNow();
}

DateTime::DateTime(int32_t seconds) : TimeBase(seconds), timeZone_(defaultTimeZone) {}

DateTime::DateTime(const DateTimeParts& parts) : DateTime(0) {
    *this = parts;
}

DateTime::DateTime(const DateParts& parts) : DateTime(0) {
    set(parts.year, parts.month, parts.day, 0, 0, 0, true);
}

DateTime::DateTime(const DateTime& other) : TimeBase(other), timeZone_(TZ_UNDEFINED) {
    setTimeZone(other.timeZone_);
}

DateTime& DateTime::operator=(const DateTime& other) {
    seconds_ = other.seconds_;
    setTimeZone(other.timeZone_);
    return *this;
}

DateTime& DateTime::operator=(const DateTimeParts& parts) {
    set(parts.year, parts.month, parts.day, parts.hour, parts.minute, parts.second, !parts.local);
    return *this;
}

void DateTime::setNow() {
    seconds_ = platform().clock->now();
}

DateParts DateTime::getDate() const {
    return getDateTime();
}

TimeParts DateTime::getTime() const {
    return getDateTime();
}

DateTimeParts DateTime::getDateTime() const {
    return partsOf(platform().clock->utc(seconds_), false);
}

int32_t DateTime::getTimeZone(bool useLast) const {
    if (timeZone_ != TZ_UNDEFINED)
        return timeZone_;
    if (const int32_t last = lastTimeZone.load(std::memory_order_relaxed); useLast && last != TZ_UNDEFINED)
        return last;
    if (defaultTimeZone != TZ_UNDEFINED)
        return defaultTimeZone;
    const CalendarFields local = platform().clock->local(seconds_);
    const int64_t asUtc = fieldsToSeconds(local.year, local.month, local.day, local.hour, local.minute, local.second);
    return static_cast<int32_t>((asUtc - seconds_) / 60);
}

void DateTime::setTimeZone(int32_t minutes) {
    timeZone_ = minutes;
    if (minutes != TZ_UNDEFINED)
        lastTimeZone.store(minutes, std::memory_order_relaxed);
}

int32_t DateTime::daysInMonth(int32_t month, int32_t year) {
    if (month == 4 || month == 6 || month == 9 || month == 11)
        return 30;
    if (month != 2)
        return 31;
    return (year - 1968) % 4 == 0 ? 29 : 28;
}

void DateTime::build(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second,
                     int32_t zone) {
    const int32_t y = std::clamp(year, minYear, maxYear);
    const int32_t m = std::clamp(month, 1, 12);
    const int32_t d = std::clamp(day, 1, daysInMonth(m, y));
    int64_t minutes = std::clamp(minute, 0, 59);
    minutes -= zone;
    const int64_t seconds = fieldsToSeconds(y, m, d, std::clamp(hour, 0, 23), minutes, std::clamp(second, 0, 59));
    seconds_ = static_cast<int32_t>(std::clamp<int64_t>(seconds, 0, maxSeconds));
    timeZone_ = TZ_UNDEFINED;
}

void DateTime::set(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second, bool zulu) {
    build(year, month, day, hour, minute, second, 0);
    if (zulu)
        return;
    lastTimeZone.store(TZ_UNDEFINED, std::memory_order_relaxed);
    takeLocalOffset();
}

/// Of a value that was built from local fields as if they were UTC.
void DateTime::takeLocalOffset() {
    const DateTime hourBefore(std::max(seconds_ - 3600, 0));
    const int64_t offset = int64_t{60} * std::max(getTimeZone(false), hourBefore.getTimeZone(false));
    seconds_ = static_cast<int32_t>(std::clamp<int64_t>(seconds_ - offset, 0, maxSeconds));
}

DateTimeParts DateTime::toLocal(const DateTimeParts& parts) const {
    if (parts.local)
        return parts;
    DateTime value(0);
    value.build(parts.year, parts.month, parts.day, parts.hour, parts.minute, parts.second, 0);
    // The offset is this value's: its own zone, if it has one, and else that of the instant.
    value.timeZone_ = timeZone_;
    const int64_t shifted = value.seconds_ + int64_t{60} * value.getTimeZone(true);
    value.seconds_ = shifted < 0 || shifted > maxSeconds ? maxDate.seconds_ : static_cast<int32_t>(shifted);
    DateTimeParts local = value.getDateTime();
    local.local = true;
    return local;
}

std::string DateTime::toString(bool zulu, bool compact) const {
    const DateTimeParts utc = getDateTime();
    const DateTimeParts parts = zulu ? utc : toLocal(utc);
    std::string text = std::to_string(parts.year);
    const auto append = [&](int32_t number, const char* separator) {
        if (!compact)
            text += separator;
        appendTwoDigits(text, number);
    };
    append(parts.month, "-");
    append(parts.day, "-");
    text += 'T';
    appendTwoDigits(text, parts.hour);
    append(parts.minute, ":");
    append(parts.second, ":");
    if (zulu)
        text += 'Z';
    return text;
}

void DateTime::alignTo(const TimeSpan& span) {
    if (span.getSeconds() < 2)
        return;
    const int64_t original = seconds_;
    const auto aligned = [&](int64_t offset) {
        return static_cast<int32_t>((original + offset) - (original + offset) % span.getSeconds() - offset);
    };
    const int32_t zone = getTimeZone(false); // that of the place, whatever zone a text has named
    seconds_ = aligned(int64_t{60} * zone);
    // Between the two lies a change of daylight saving: the period begins by the clock that was in force then.
    if (const int32_t zoneThere = getTimeZone(false); zoneThere != zone)
        seconds_ = aligned(int64_t{60} * zoneThere);
}

DateTime& DateTime::operator+=(const TimeSpan& span) {
    seconds_ = static_cast<int32_t>(static_cast<uint32_t>(seconds_) + static_cast<uint32_t>(span.getSeconds()));
    return *this;
}

DateTime DateTime::operator+(const TimeSpan& span) const {
    DateTime result(*this);
    result += span;
    return result;
}

DateTime DateTime::operator-(const TimeSpan& span) const {
    DateTime result(*this);
    result.seconds_ = static_cast<int32_t>(static_cast<uint32_t>(seconds_) - static_cast<uint32_t>(span.getSeconds()));
    return result;
}

void DateTime::wait(int32_t seconds) {
    const DateTime end = DateTime() + TimeSpan(seconds);
    while (DateTime() < end)
        Timer::sleep(waitStep);
}

} // namespace Velmor
