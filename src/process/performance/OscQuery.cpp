#include "process/performance/OscQuery.h"

#include "platform/Errors.h"
#include "platform/PerformanceData.h"
#include "platform/PerformanceLayout.h"
#include "platform/Platform.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <new>

namespace Velmor {

namespace {
constexpr uint32_t sizeStep = 2048;
constexpr uint32_t mostBytes = 1U << 30U; // a system that asks for more than this has lost count
constexpr uint32_t firstDifference = 50;  // milliseconds between the first two samples
constexpr int32_t noQuery = -1;
constexpr int32_t noSample = -1;
constexpr int32_t failedUpdate = -2;
constexpr int32_t failedStatus = 1;
constexpr double negative = -1;
constexpr double hundred = 100;

/// Takes a sample, unless there is one already.
bool takeSample(OscQuery& query, std::unique_ptr<PerformanceSample>& target) {
    if (target)
        return true;
    std::string bytes(query.bufferSize, '\0');
    size_t size = bytes.size();
    uint32_t error = NativeError::success;
    while (!platform().performanceData->sample(bytes.data(), size, error)) {
        if (error != NativeError::moreData || query.bufferSize > mostBytes)
            return false;
        query.bufferSize += sizeStep;
        bytes.resize(query.bufferSize);
        size = bytes.size();
    }
    bytes.resize(std::min(size, bytes.size()));
    target = PerformanceSample::parse(std::move(bytes));
    if (!target)
        return false;
    query.littleEndian = target->littleEndian();
    query.bufferSize = OscQuery::startSize;
    return true;
}

/// Takes the text up to the next zero byte off the front.
std::string_view takeText(std::string_view& rest) {
    const std::string_view text = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    return text;
}

/// The system's names by their title index.
std::map<uint32_t, std::string> readNameTable() {
    std::map<uint32_t, std::string> table;
    uint32_t last = 0;
    std::string pairs;
    uint32_t error = NativeError::success;
    if (!platform().performanceData->counterNames(last, pairs, error))
        return table;
    std::string_view rest = pairs;
    for (std::string number(takeText(rest)); !number.empty(); number = takeText(rest)) {
        const unsigned long index = std::strtoul(number.c_str(), nullptr, 10);
        const std::string_view name = takeText(rest);
        if (index <= last)
            table[static_cast<uint32_t>(index)] = name;
    }
    return table;
}

void fillNames(OscQuery& query) {
    const std::map<uint32_t, std::string> table = readNameTable();
    if (!takeSample(query, query.current))
        return;
    if (!query.current->objects().empty())
        for (const SampleCounter& counter : query.current->objects().front().counters) {
            const auto name = table.find(counter.title);
            query.names.push_back({counter.title, name == table.end() ? std::string() : name->second});
        }
    query.current.reset();
}

/// A moment in the unit of a counter's time base, and how many of these units are a second where that matters.
struct TimeBase {
    double time = 0;
    double frequency = 1;
};

TimeBase timeBase(const PerformanceSample& sample, const CounterLocation& location, uint32_t type) {
    switch (type & PerfType::timerBits) {
    case PerfType::timerTick:
        return {static_cast<double>(sample.perfTime())};
    case PerfType::timer100ns:
        return {static_cast<double>(sample.perfTime100ns())};
    case PerfType::objectTimer:
        return {static_cast<double>(location.object->perfTime), static_cast<double>(location.object->perfFreq)};
    default:
        return {};
    }
}

double quotient(double dividend, double divisor) {
    return divisor == 0 ? 0 : dividend / divisor;
}

/// A counter in the two samples of a round.
class CounterDifference {
public:
    CounterDifference(const OscQuery& query, const CounterLocation& first, const CounterLocation& later)
        : query_(query), first_(first), later_(later), type_(first.counter->type) {}

    double value() const {
        double result = bySubtype();
        if (type_ & PerfType::inverse)
            result = 1 - result;
        switch (type_ & PerfType::displayBits) {
        case PerfType::perSecond:
            return result * static_cast<double>(query_.second->perfFreq());
        case PerfType::percent:
            return result * hundred;
        default:
            return result;
        }
    }

private:
    bool has(uint32_t bits) const { return (type_ & bits) != 0; }
    bool littleEndian() const { return query_.littleEndian != 0; }

    double bySubtype() const {
        const TimeBase now = timeBase(*query_.second, later_, type_);
        switch (type_ & PerfType::subtypeBits) {
        case PerfType::rate:
        case PerfType::queueLength:
            return quotient(numerator(), span(now));
        case PerfType::fraction:
            return quotient(numerator(), denominator());
        case PerfType::elapsed:
            return quotient(now.time - numerator(), now.frequency);
        default:
            return numerator();
        }
    }

    double numerator() const {
        const double later = query_.second->read(later_, littleEndian());
        const bool isDifference = has(PerfType::deltaCounter | PerfType::deltaBase);
        return isDifference ? later - query_.current->read(first_, littleEndian()) : later;
    }

    /// What a fraction is of: the base that stands behind the counter.
    double denominator() const {
        const double later = query_.second->readBase(later_, littleEndian());
        if (has(PerfType::deltaBase))
            return later - query_.current->readBase(first_, littleEndian());
        return has(PerfType::deltaCounter) ? 0 : later;
    }

    double span(const TimeBase& now) const {
        return has(PerfType::deltaCounter) ? now.time - timeBase(*query_.current, first_, type_).time : now.time;
    }

    const OscQuery& query_;
    const CounterLocation& first_;
    const CounterLocation& later_;
    uint32_t type_;
};

/// The value of a counter that takes two samples; false if the later one can't be had.
bool computeValue(OscQuery& query, const OscCounter& counter, const CounterLocation& first, double& value) {
    if (!query.second) {
        Timer::sleep(firstDifference);
        if (!takeSample(query, query.second))
            return false;
    }
    const CounterLocation later = query.second->find(counter.pid, counter.counterId);
    value = later ? CounterDifference(query, first, later).value() : 0;
    return true;
}

bool readValue(OscQuery& query, const OscCounter& counter, double& value) {
    const CounterLocation location =
        query.current ? query.current->find(counter.pid, counter.counterId) : CounterLocation{};
    if (!location)
        return false;
    switch (location.counter->type & PerfType::kindBits) {
    case PerfType::number:
        value = query.current->read(location, query.littleEndian != 0);
        return true;
    case PerfType::counter:
        return computeValue(query, counter, location, value);
    case PerfType::text:
        value = negative;
        return true;
    default:
        value = 0;
        return true;
    }
}

void gather(OscCounter& counter, double value) {
    switch (counter.mode) {
    case GatherMode::last:
        counter.value = value;
        break;
    case GatherMode::sum:
    case GatherMode::average:
        counter.value += value;
        break;
    case GatherMode::largest:
        counter.value = std::max(counter.value, value);
        break;
    case GatherMode::smallest:
        counter.value = std::min(counter.value, value);
        break;
    default:
        break;
    }
    constexpr int32_t mostSamples = std::numeric_limits<int32_t>::max();
    if (++counter.samples < mostSamples)
        return;
    // From here on the average so far counts as one sample.
    if (counter.mode == GatherMode::sum || counter.mode == GatherMode::average)
        counter.value /= mostSamples;
    counter.samples = 1;
}
} // namespace

std::unique_ptr<OscQuery> OscOpenQuery(int32_t withNames) {
    std::unique_ptr<OscQuery> query(new (std::nothrow) OscQuery);
    if (query && withNames != 0)
        fillNames(*query);
    return query;
}

int32_t OscCloseQuery(std::unique_ptr<OscQuery>& query) {
    query.reset();
    return 0;
}

int32_t OscCollectQueryData(OscQuery* query) {
    if (!query)
        return noQuery;
    return takeSample(*query, query->current) ? 0 : noSample;
}

int32_t OscUpdateCounter(OscQuery* query, OscCounter& counter) {
    if (!query)
        return noQuery;
    double value = 0;
    if (!readValue(*query, counter, value) || value < 0) {
        counter.status = failedStatus;
        return failedUpdate;
    }
    counter.status = 0;
    gather(counter, value);
    return 0;
}

int32_t OscNextSample(OscQuery* query) {
    if (!query)
        return noQuery;
    query->current = std::move(query->second);
    return 0;
}

uint32_t OscFindCounter(const OscQuery* query, std::string_view name) {
    if (!query)
        return 0;
    const std::string wanted = toLowerCopy(name);
    const auto found = std::find_if(query->names.begin(), query->names.end(),
                                    [&](const CounterName& known) { return toLowerCopy(known.name) == wanted; });
    return found == query->names.end() ? 0 : found->index;
}

} // namespace Velmor
