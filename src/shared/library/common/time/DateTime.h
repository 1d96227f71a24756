#pragma once

#include "shared/library/common/time/TimeBase.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

struct DateParts {
    int32_t year = 0;    // four digits
    int32_t month = 0;   // 1 to 12
    int32_t day = 0;     // 1 to 31
    int32_t weekday = 0; // 0 = Monday
};

struct TimeParts {
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    bool local = false; // the fields are local time, else UTC
};

struct DateTimeParts : DateParts, TimeParts {};

/// A point in time: seconds since 1970-01-01 00:00:00 UTC in 32 bits. It is always held as UTC; local time exists only
/// in printing, in parsing and in fields. Fields out of range are clamped, never refused.
///
/// A zone that was given explicitly by `setTimeZone` is remembered for the process and serves the local
/// view of all values until local fields are read again.
class DateTime : public TimeBase {
public:
    static constexpr int32_t TZ_UNDEFINED = 2147483647; // no zone is attached

    static const DateTime minDate; // stands for no date yet
    static const DateTime maxDate; // 2038-01-19T03:14:07Z

    DateTime();                         // now
    explicit DateTime(int32_t seconds); // unchecked
    explicit DateTime(const DateTimeParts& parts);
    explicit DateTime(const DateParts& parts); // at 00:00:00 UTC
    DateTime(const DateTime& other);
    DateTime& operator=(const DateTime& other);
    DateTime& operator=(const DateTimeParts& parts);

    void setNow();

    /// The UTC fields.
    DateParts getDate() const;
    TimeParts getTime() const;
    DateTimeParts getDateTime() const;

    /// Offset of the zone from UTC in minutes, positive to the east: this value's own, else with `useLast` the one
    /// remembered, else that of the machine's zone at this instant.
    int32_t getTimeZone(bool useLast) const;
    void setTimeZone(int32_t minutes);

    /// Builds the value from fields, in UTC with `zulu`, else in local time.
    void set(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second, bool zulu);

    /// The local fields of UTC fields; local ones come back as they are.
    DateTimeParts toLocal(const DateTimeParts& parts) const;

    /// `2008-05-19T08:55:23`, or with `compact` `20080519T085523`; local, or with `zulu` UTC and a "Z" behind.
    std::string toString(bool zulu, bool compact) const;

    /// Reads a text as UTC fields; a zone in it counts for this text alone. Throws `TimeException` TM_INPUT with a
    /// description for a text of a wrong shape.
    static DateTimeParts fromString(std::string_view text);

    /// Moves the value back to the start of the local period of that length. A span below 2 seconds changes nothing.
    void alignTo(const TimeSpan& span);

    DateTime& operator+=(const TimeSpan& span);
    DateTime operator+(const TimeSpan& span) const;
    DateTime operator-(const TimeSpan& span) const;
    TimeSpan operator-(const DateTime& other) const {
        return TimeSpan(static_cast<int32_t>(static_cast<uint32_t>(seconds_) - static_cast<uint32_t>(other.seconds_)));
    }
    bool operator<(const DateTime& other) const { return seconds_ < other.seconds_; }
    bool operator<=(const DateTime& other) const { return seconds_ <= other.seconds_; }
    bool operator>(const DateTime& other) const { return seconds_ > other.seconds_; }
    bool operator>=(const DateTime& other) const { return seconds_ >= other.seconds_; }

    /// Returns when the clock has moved on by that many seconds. A clock that steps back lengthens the wait.
    static void wait(int32_t seconds);

    static int32_t daysInMonth(int32_t month, int32_t year);

private:
    /// From fields of a zone that many minutes east of Greenwich.
    void build(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second, int32_t zone);
    void takeLocalOffset();

    friend class DateTimeReader;

    int32_t timeZone_; // minutes east of Greenwich, or TZ_UNDEFINED
};

/// The local offset of the instant of its construction, in minutes.
class TimeZoneDef {
public:
    TimeZoneDef();
    virtual ~TimeZoneDef() = default;
    int32_t getOffset() const { return offset_; }

    /// The offset at the program's start.
    static const TimeZoneDef atStart;

private:
    int32_t offset_;
};

} // namespace Velmor
