#pragma once

#include "shared/library/common/time/TimeBase.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// The fields of a duration, as its text form has them.
struct TimeSpanParts {
    int32_t days = 0;
    int32_t hours = 0;
    int32_t minutes = 0;
    int32_t seconds = 0;
    bool negative = false;
};

/// A duration in seconds, with the text form `P1D1H1M1S`; zero is "P0".
class TimeSpan : public TimeBase {
public:
    TimeSpan() : TimeBase(0) {}
    explicit TimeSpan(int32_t seconds) : TimeBase(seconds) {}
    /// Unchecked, as values of the configuration come.
    explicit TimeSpan(const TimeSpanParts& parts);

    /// Throws `TimeException` TM_DAYS, TM_HOURS, TM_MINUTES or TM_SECONDS for the first field out of its range.
    void set(int32_t days, int32_t hours, int32_t minutes, int32_t seconds);

    /// The magnitude split into fields; the sign stands apart.
    TimeSpanParts getParts() const;
    /// Whole days, toward zero.
    int32_t getDays() const;
    std::string toString() const;

    /// Reads the text form; an empty text is zero. Throws `TimeException` TM_INPUT without the leading "P".
    static TimeSpanParts fromString(std::string_view text);

    bool operator!=(const TimeSpan& other) const { return seconds_ != other.seconds_; }
};

} // namespace Velmor
