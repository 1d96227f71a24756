#include "shared/library/common/errors/TimeException.h"

#include <array>

namespace Velmor {

namespace {
// In the order of TimeCode, from 0.
constexpr std::array<std::string_view, 11> texts{
    "No exception!",
    "Days out of range: (0 - 24,855).",
    "Hours out of range: (0-23).",
    "Minutes out of range: (0-59).",
    "Seconds out of range: (0-59).",
    "Year out of range: (1970 - 2037).",
    "Month out of range: (1 - 12).",
    "Day out of range: (1 - days of the month in question).",
    "Illegal date and/or time.",
    "Illegal date/time. Cannot have date before 01.01.1970 0:00:00!",
    "Illegal input format.",
};
} // namespace

void TimeException::describe(std::string& out) const {
    describeAs(out, "Time", texts);
}

} // namespace Velmor
