#pragma once

#include <cstdint>
#include <string_view>

namespace Velmor {

/// What points in time and durations share: a signed number of seconds in 32 bits.
class TimeBase {
public:
    virtual ~TimeBase() = default;

    int32_t getSeconds() const { return seconds_; }
    /// Throws `TimeException` TM_DATETIME for a negative value.
    void setSeconds(int32_t seconds);
    void clear() { seconds_ = 0; }
    bool isZero() const { return seconds_ == 0; }

    /// Whether the character at `index` is a digit; with a negative index, whether all of the text are.
    static bool isDigit(std::string_view text, int32_t index);

protected:
    explicit TimeBase(int32_t seconds) : seconds_(seconds) {}
    TimeBase(const TimeBase&) = default;
    TimeBase& operator=(const TimeBase&) = default;

    int32_t seconds_;
};

} // namespace Velmor
