#pragma once

#include <cstdint>

namespace Velmor {

/// The fields of one second. `weekday` counts from 0 = Monday, `month` and `day` from 1.
struct CalendarFields {
    int32_t year = 1970;
    int32_t month = 1;
    int32_t day = 1;
    int32_t weekday = 3;
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
};

/// The only source of time and of sleeping.
class Clock {
public:
    virtual ~Clock() = default;

    /// Wall-clock seconds since 1970-01-01 00:00:00 UTC. May be stepped in both directions.
    virtual int32_t now() = 0;

    /// Milliseconds since some fixed moment; never set back, wraps around after 2^32.
    virtual uint32_t ticks() = 0;

    /// Suspends the calling thread for at least `milliseconds`.
    virtual void sleep(uint32_t milliseconds) = 0;

    /// The fields of `seconds` in UTC, and in the local zone as its rules are at that instant.
    virtual CalendarFields utc(int32_t seconds) = 0;
    virtual CalendarFields local(int32_t seconds) = 0;
};

} // namespace Velmor
