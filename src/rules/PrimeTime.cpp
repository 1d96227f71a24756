#include "rules/PrimeTime.h"

#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <limits>

namespace Velmor {

namespace {
constexpr size_t unlimited = std::numeric_limits<int32_t>::max();

bool matches(const std::string& pattern, int32_t value) {
    if (pattern == "*")
        return true;
    std::vector<int32_t> numbers;
    if (pattern.find('-') != std::string::npos) {
        splitNumbers(pattern, '-', numbers, unlimited);
        return numbers.size() == 2 && value >= numbers[0] && value <= numbers[1];
    }
    splitNumbers(pattern, ',', numbers, unlimited);
    return std::find(numbers.begin(), numbers.end(), value) != numbers.end();
}

/// The word behind the fields, in lower case.
std::string wordBehind(std::string word) {
    word.resize(std::min(word.size(), word.find('#')));
    trimBlanks(word);
    toLower(word);
    return word;
}

PrimePeriod readPeriod(std::string line) {
    PrimePeriod period;
    for (std::string* field : {&period.years, &period.months, &period.days, &period.weekdays})
        *field = firstField(line, ':');
    const auto hoursEnd = std::find_if(line.begin(), line.end(), StringSearcher::isBlank);
    period.hours.assign(line.begin(), hoursEnd);
    const std::string word = wordBehind(std::string(hoursEnd, line.end()));
    period.prime = word != "exclude" && word != "0";
    return period;
}

/// A field of a period, and which numbers it can be.
struct FieldRange {
    const char* name;
    std::string PrimePeriod::*pattern;
    int32_t least;
    int32_t most;
};
constexpr std::array fieldRanges{
    FieldRange{"year", &PrimePeriod::years, 1970, 2105}, FieldRange{"month", &PrimePeriod::months, 1, 12},
    FieldRange{"day", &PrimePeriod::days, 1, 31}, FieldRange{"week day", &PrimePeriod::weekdays, 0, 6},
    FieldRange{"hour", &PrimePeriod::hours, 0, 23}};

/// Tells what a calendar says in vain.
class PeriodCheck {
public:
    explicit PeriodCheck(const FindingSink& sink) : sink_(sink) {}

    void nextLine() { ++line_; }

    void tell(const PrimePeriod& period, const std::string& line) {
        if (!sink_)
            return;
        if (const auto fields = std::count(line.begin(), line.begin() + static_cast<ptrdiff_t>(hoursEnd(line)), ':');
            fields < 4)
            sink_.warning(line_,
                          "the line has " + std::to_string(fields + 1) + " of the five fields, and matches nothing",
                          "write year:month:day:week day:hour, with * for any");
        else
            for (const FieldRange& range : fieldRanges)
                tellField(period.*range.pattern, range);
        tellWord(wordBehind(std::string(std::find_if(line.begin(), line.end(), StringSearcher::isBlank), line.end())));
        tellCovered(period);
        tellDate(period);
    }

private:
    static size_t hoursEnd(const std::string& line) {
        return static_cast<size_t>(std::find(line.begin(), line.end(), '#') - line.begin());
    }

    void tellField(const std::string& pattern, const FieldRange& range) const {
        if (pattern == "*")
            return;
        const std::string what = "\"" + pattern + "\" for the " + range.name;
        const bool isDays = range.pattern == &PrimePeriod::weekdays;
        if (pattern.empty()) {
            sink_.warning(line_, std::string("the ") + range.name + " is empty, and matches nothing",
                          "write * for any");
            return;
        }
        if (pattern.find_first_not_of("0123456789,-") != std::string::npos) {
            sink_.warning(line_, what + " is no pattern of numbers",
                          isDays ? "count week days from 0 for Sunday, as 1-5 for mon-fri"
                                 : "write *, a number, numbers with commas, or a range");
            return;
        }
        const bool isRange = pattern.find('-') != std::string::npos;
        std::vector<std::string> parts;
        split(pattern, isRange ? '-' : ',', parts, unlimited);
        if (isRange && pattern.find(',') != std::string::npos)
            sink_.warning(line_, what + " mixes a range with a comma, which has no meaning there",
                          "write a line for each range");
        else if ((isRange && parts.size() != 2) || std::find(parts.begin(), parts.end(), "") != parts.end() ||
                 pattern.back() == '-' || pattern.back() == ',')
            sink_.warning(line_, what + " lacks a number", "write a range as 8-17, and numbers as 8,9");
        else
            tellNumbers(parts, isRange, what, range);
    }

    void tellNumbers(const std::vector<std::string>& parts, bool isRange, const std::string& what,
                     const FieldRange& range) const {
        const std::string limits = std::to_string(range.least) + " to " + std::to_string(range.most);
        for (const std::string& part : parts)
            if (toNumber(part) < range.least || toNumber(part) > range.most) {
                const bool isSunday = range.pattern == &PrimePeriod::weekdays && part == "7";
                sink_.warning(line_, std::string(what).append(" is beyond ").append(limits),
                              isSunday ? "Sunday is 0" : "write a number of " + limits);
                return;
            }
        if (isRange && toNumber(parts[0]) > toNumber(parts[1]))
            sink_.warning(line_, what + " is an empty range",
                          "write the smaller number first; over the end in two lines");
    }

    void tellWord(const std::string& word) const {
        for (const char* known : {"", "exclude", "0", "include", "prime", "1"})
            if (word == known)
                return;
        sink_.warning(line_, "the word \"" + word + "\" makes the moments prime, as any but exclude and 0",
                      hintOr(word, {"exclude"}, "write exclude, or no word"));
    }

    void tellCovered(const PrimePeriod& period) {
        const bool isAll = std::all_of(fieldRanges.begin(), fieldRanges.end(),
                                       [&](const FieldRange& range) { return period.*range.pattern == "*"; });
        if (isAll && lastLine_ > 0)
            sink_.warning(lastLine_,
                          "the line does nothing, since line " + std::to_string(line_) +
                              " matches every moment, and the last line that matches decides",
                          "put the line that matches all first");
        lastLine_ = line_;
    }

    /// A day that no such month has.
    void tellDate(const PrimePeriod& period) const {
        constexpr std::array<int32_t, 12> longest{31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        const auto isNumber = [](const std::string& text) {
            return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        };
        if (!isNumber(period.months) || !isNumber(period.days))
            return;
        const int32_t month = toNumber(period.months);
        if (month >= 1 && month <= 12 && toNumber(period.days) > longest[static_cast<size_t>(month - 1)] &&
            toNumber(period.days) <= 31)
            sink_.warning(line_, "the month " + period.months + " has no day " + period.days,
                          "the fields are year:month:day:week day:hour");
    }

    const FindingSink& sink_;
    int32_t line_ = 0;
    int32_t lastLine_ = 0; // with a period
};

constexpr uint64_t packed(int32_t seconds, int32_t timeClass) {
    return (uint64_t{static_cast<uint32_t>(seconds)} << 32) | static_cast<uint32_t>(timeClass);
}
} // namespace

bool PrimeTime::readFile(const std::string& fileName, const FindingSink& sink) {
    BasicFile file;
    if (!file.open(fileName, BasicFile::MODE_READ))
        return false;
    clear();
    PeriodCheck check(sink);
    while (!file.eof(BasicFile::LAST_USED)) {
        std::string line = file.readLine();
        if (file.getError() != BasicFile::ERROR_NONE)
            return false;
        check.nextLine();
        trimBlanks(line);
        if (line.empty() || line.front() == '#')
            continue;
        periods_.push_back(readPeriod(line));
        check.tell(periods_.back(), line);
    }
    return true;
}

void PrimeTime::clear() {
    periods_.clear();
    last_ = 0;
}

int32_t PrimeTime::getClass(const DateTime& time) {
    const uint64_t last = last_.load(std::memory_order_relaxed);
    if (last != 0 && static_cast<int32_t>(last >> 32) == time.getSeconds())
        return static_cast<int32_t>(last & 0xffffffffU);
    const int32_t timeClass = search(time);
    last_.store(packed(time.getSeconds(), timeClass), std::memory_order_relaxed);
    return timeClass;
}

int32_t PrimeTime::search(const DateTime& time) const {
    const DateTimeParts local = time.toLocal(time.getDateTime());
    const int32_t weekday = (local.weekday + 8) % 7; // Sunday first
    int32_t timeClass = UNDEFINED;
    for (const PrimePeriod& period : periods_)
        if (matches(period.years, local.year) && matches(period.months, local.month) &&
            matches(period.days, local.day) && matches(period.weekdays, weekday) && matches(period.hours, local.hour))
            timeClass = period.prime ? PRIME : NON_PRIME;
    return timeClass;
}

PrimeTime& primeTimeCalendar() {
    static PrimeTime calendar;
    return calendar;
}

std::string_view getClassText(const DateTime& time) {
    switch (primeTimeCalendar().getClass(time)) {
    case PrimeTime::PRIME:
        return "prime";
    case PrimeTime::NON_PRIME:
        return "non-prime";
    default:
        return "undef";
    }
}

} // namespace Velmor
