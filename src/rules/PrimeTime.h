#pragma once

#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/time/DateTime.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// A line of the calendar: patterns on the local year, month, day, week day and hour.
struct PrimePeriod {
    std::string years;
    std::string months;
    std::string days;
    std::string weekdays; // 0 = Sunday
    std::string hours;
    bool prime = true;
};

/// The calendar that tells prime time from the rest, by local time. Read during the configuration; `getClass` may then
/// be called by any thread.
class PrimeTime {
public:
    static constexpr int32_t UNDEFINED = 0;
    static constexpr int32_t PRIME = 1;
    static constexpr int32_t NON_PRIME = 2;

    virtual ~PrimeTime() = default;

    /// Replaces the calendar by that of a file. False if the file can't be opened; the calendar then stays.
    /// Tells the sink what never matches, or otherwise than it looks.
    bool readFile(const std::string& fileName, const FindingSink& sink = {});

    /// The class of a moment: what the last line that matches it says, else UNDEFINED.
    int32_t getClass(const DateTime& time);

    /// Forgets all lines: every moment is undefined then.
    void clear();

private:
    int32_t search(const DateTime& time) const;

    std::vector<PrimePeriod> periods_; // in file order
    std::atomic<uint64_t> last_{0};    // seconds of the last search and its class, in one word so that they can't mix
};

/// The one calendar of the collector.
PrimeTime& primeTimeCalendar();

/// "prime", "non-prime" or "undef".
std::string_view getClassText(const DateTime& time);

} // namespace Velmor
