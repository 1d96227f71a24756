// The reading of a date and time from text.

#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/time/DateTime.h"

#include <cstdlib>
#include <optional>

namespace Velmor {

namespace {
[[noreturn]] void refuse(const char* why, int32_t line) {
    throw TimeException(TM_INPUT, why, __FILE__, line);
}

bool startsWithDigits(std::string_view text, size_t count) {
    return text.size() >= count && TimeBase::isDigit(text.substr(0, count), -1);
}
} // namespace

/// Reads one text. Fields that hold anything but digits take their value from the present UTC time.
class DateTimeReader {
public:
    explicit DateTimeReader(std::string_view text) {
        if (text.empty())
            refuse("Minimum input: \"yyyy\".", __LINE__);
        const size_t separator = text.find('T');
        readDate(text.substr(0, separator));
        const bool hasTime = separator != std::string_view::npos && separator + 1 < text.size();
        readTime(hasTime ? text.substr(separator + 1) : std::string_view("00:00:00"));
    }

    DateTimeParts result() const {
        const DateTimeParts now = DateTime().getDateTime();
        DateTimeParts parts;
        parts.year = number(year_, now.year);
        parts.month = number(month_, now.month);
        parts.day = number(day_, now.day);
        parts.hour = number(hour_, now.hour);
        parts.minute = number(minute_, now.minute);
        parts.second = number(second_, now.second);
        return inZone(parts, zone_ ? *zone_ : localZone(parts)).getDateTime();
    }

private:
    static int32_t number(std::string_view field, int32_t otherwise) {
        return TimeBase::isDigit(field, -1) ? std::atoi(std::string(field).c_str()) : otherwise;
    }

    static DateTime inZone(const DateTimeParts& parts, int32_t zone) {
        DateTime value(0);
        value.build(parts.year, parts.month, parts.day, parts.hour, parts.minute, parts.second, zone);
        return value;
    }

    static int32_t localZone(const DateTimeParts& parts) {
        DateTime value = inZone(parts, 0);
        value.takeLocalOffset();
        return value.getTimeZone(false);
    }

    /// Takes a field of two characters, and the separator that may stand before it, off the front of `rest`.
    static std::string_view takeField(std::string_view& rest, char separator, const char* expected,
                                      const char* tooShort) {
        if (!TimeBase::isDigit(rest, 0)) {
            if (rest.front() != separator)
                refuse(expected, __LINE__);
            rest.remove_prefix(1);
        }
        if (rest.size() < 2)
            refuse(tooShort, __LINE__);
        const std::string_view field = rest.substr(0, 2);
        rest.remove_prefix(2);
        return field;
    }

    void readDate(std::string_view rest) {
        if (rest.size() < 4)
            refuse("Minimum input: \"yyyy\".", __LINE__);
        year_ = rest.substr(0, 4);
        rest.remove_prefix(4);
        if (!rest.empty())
            month_ = takeField(rest, '-', "Expected '-' after yyyy (year).",
                               "Illegal input format. Month must have 2 digits.");
        if (!rest.empty())
            day_ =
                takeField(rest, '-', "Expected '-' after mm (month).", "Illegal input format. Day must have 2 digits.");
        if (rest.size() > 1)
            refuse("Input too long.", __LINE__);
    }

    void readTime(std::string_view rest) {
        if (rest.size() < 2)
            refuse("Minimum input: \"hh\".", __LINE__);
        if (!startsWithDigits(rest, 2))
            refuse("Minimum input format: \"hh\".", __LINE__);
        hour_ = rest.substr(0, 2);
        rest.remove_prefix(2);
        if (!rest.empty())
            minute_ = takeField(rest, ':', "Expected ':' after hh (hours).",
                                "Illegal input format. Minutes must have 2 digits.");
        if (!rest.empty())
            second_ = takeField(rest, ':', "Expected ':' after mm (minutes).",
                                "Illegal input format. Seconds must have 2 digits.");
        if (!rest.empty())
            readZone(rest);
    }

    void readZone(std::string_view rest) {
        const char sign = rest.front();
        rest.remove_prefix(1);
        if (sign == 'Z') {
            if (!rest.empty())
                refuse("Input too long.", __LINE__);
            zone_ = 0;
            return;
        }
        if (sign != '+' && sign != '-')
            refuse("Expected '+' or '-' before timezone.", __LINE__);
        if (!startsWithDigits(rest, 2))
            refuse("Illegal input format. Hours in timezone must have 2 digits.", __LINE__);
        int32_t minutes = 60 * number(rest.substr(0, 2), 0);
        rest.remove_prefix(2);
        if (!rest.empty())
            minutes += zoneMinutes(rest);
        zone_ = sign == '-' ? -minutes : minutes;
    }

    static int32_t zoneMinutes(std::string_view rest) {
        if (!TimeBase::isDigit(rest, 0)) {
            if (rest.front() != ':')
                refuse("Expected ':' after hh (hours) in timezone.", __LINE__);
            rest.remove_prefix(1);
        }
        if (rest.size() < 2)
            refuse("Illegal input format. Minutes in timezone must have 2 digits.", __LINE__);
        if (rest.size() > 3)
            refuse("Input too long.", __LINE__);
        return number(rest.substr(0, 2), 0);
    }

    std::string_view year_;
    std::string_view month_ = "01";
    std::string_view day_ = "01";
    std::string_view hour_;
    std::string_view minute_ = "00";
    std::string_view second_ = "00";
    std::optional<int32_t> zone_; // minutes east of Greenwich
};

DateTimeParts DateTime::fromString(std::string_view text) {
    return DateTimeReader(text).result();
}

} // namespace Velmor
