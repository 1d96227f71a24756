#include "rules/PrimeTime.h"

#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
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

PrimePeriod readPeriod(std::string line) {
    PrimePeriod period;
    for (std::string* field : {&period.years, &period.months, &period.days, &period.weekdays})
        *field = firstField(line, ':');
    const auto hoursEnd = std::find_if(line.begin(), line.end(), StringSearcher::isBlank);
    period.hours.assign(line.begin(), hoursEnd);
    std::string word(hoursEnd, line.end());
    word.resize(std::min(word.size(), word.find('#')));
    trimBlanks(word);
    toLower(word);
    period.prime = word != "exclude" && word != "0";
    return period;
}

constexpr uint64_t packed(int32_t seconds, int32_t timeClass) {
    return (uint64_t{static_cast<uint32_t>(seconds)} << 32) | static_cast<uint32_t>(timeClass);
}
} // namespace

bool PrimeTime::readFile(const std::string& fileName) {
    BasicFile file;
    if (!file.open(fileName, BasicFile::MODE_READ))
        return false;
    clear();
    while (!file.eof(BasicFile::LAST_USED)) {
        std::string line = file.readLine();
        if (file.getError() != BasicFile::ERROR_NONE)
            return false;
        trimBlanks(line);
        if (!line.empty() && line.front() != '#')
            periods_.push_back(readPeriod(std::move(line)));
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
