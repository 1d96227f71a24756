// The thread that samples the performance counters of the processes that the performance rules select.

#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"

#include "platform/Errors.h"
#include "process/RuntallyMessages.h"
#include "process/performance/OscQuery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/errors/StructuredException.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <string_view>

namespace Velmor {

namespace {
const WorkerPace pace{TimeSpan(10), 0, false};
constexpr uint32_t pausesOfRound = 10;
constexpr uint32_t longestPause = 500; // milliseconds
constexpr uint32_t millisecondsOfSecond = 1000;
constexpr uint32_t failedThread = std::numeric_limits<uint32_t>::max();

const Logger& logger() {
    return runtallyState().logger;
}

PerformanceState& performance() {
    return runtallyState().performance;
}

struct ModeWord {
    std::string_view word;
    int32_t mode;
};
constexpr std::array modeWords{ModeWord{"abs", GatherMode::last}, ModeWord{"sum", GatherMode::sum},
                               ModeWord{"avg", GatherMode::average}, ModeWord{"max", GatherMode::largest},
                               ModeWord{"min", GatherMode::smallest}};

int32_t modeOf(std::string_view word) {
    for (const ModeWord& known : modeWords)
        if (known.word == word)
            return known.mode;
    return GatherMode::last;
}

CounterEntry readEntry(std::string line) {
    CounterEntry entry;
    const bool hasMode = line.find('|') != std::string::npos;
    entry.name = firstField(line, '|');
    trimBlanks(line);
    entry.mode = hasMode ? modeOf(line) : GatherMode::last;
    return entry;
}

void tellEntry(const std::vector<CounterEntry>& entries, const std::string& line, const FindingSink& sink) {
    if (!sink)
        return;
    static const std::vector<std::string_view> words{"abs", "sum", "avg", "max", "min"};
    const CounterEntry& entry = entries.back();
    const size_t bar = line.find('|');
    std::string word = bar == std::string::npos ? "abs" : line.substr(bar + 1);
    trimBlanks(word);
    if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end())
        sink.warning(entry.line, "\"" + word + "\" is no way to gather samples, so the last one counts",
                     hintOr(word, words, "write abs, sum, avg, max or min"));
    if (entry.name.ends_with(' ') || entry.name.ends_with('\t'))
        sink.warning(entry.line, "a blank before the | belongs to the counter's name", "remove it");
    for (const CounterEntry& earlier : entries)
        if (&earlier != &entry && toLowerCopy(earlier.name) == toLowerCopy(entry.name))
            sink.warning(entry.line, "the counter stands in line " + std::to_string(earlier.line) + " already",
                         "remove one of them");
}

/// What a trace shows of a query: the same number for the same one.
int32_t numberOf(const std::unique_ptr<OscQuery>& query) {
    return static_cast<int32_t>(reinterpret_cast<uintptr_t>(query.get()));
}

/// Learns the counters' numbers. False without a query.
bool findCounters() {
    std::unique_ptr<OscQuery> query = OscOpenQuery(1);
    logger().debug(5, "readCountersFile: OscOpenQuery returned %i", numberOf(query));
    if (!query)
        return false;
    for (CounterEntry& entry : performance().counters) {
        entry.counterId = OscFindCounter(query.get(), entry.name);
        performance().counterIds[entry.name] = entry.counterId;
    }
    logger().debug(5, "readCountersFile: OscCloseQuery on %i", numberOf(query));
    OscCloseQuery(query);
    return true;
}

void updateCounters(OscQuery* query, Process& process) {
    for (ProcessCounter& counter : process.counters()) {
        if (OscUpdateCounter(query, counter) != 0) {
            if (logger().passes(4))
                logger().debug(4, "OscUpdateCounter failed: PID=%i. Process status: %s", process.pid(),
                               process.getExitCode() == stillActive ? "Active" : "Ended");
            return;
        }
        if (counter.value < 0)
            logger().debug(1, "WARNING: Got negative value for counter %i on process %i", counter.counterId,
                           process.pid());
    }
}

/// Samples all monitored processes. False if no sample can be had.
bool sampleRound(OscQuery* query, const std::string& name) {
    if (runtallyState().registry.monitoredCount <= 0)
        return true;
    {
        const RegistryHold hold(name);
        if (!hold)
            return true;
        if (OscCollectQueryData(query) == 0) {
            for (const auto& [pid, process] : runtallyState().registry.processMap)
                if (process->isMonitored())
                    updateCounters(query, *process);
            OscNextSample(query);
            return true;
        }
    }
    logger().debug(4, "OscCollectQueryData failed: Stop thread %s", name);
    return false;
}

/// Answers the supervisor meanwhile: an interval may be longer than its patience.
void pauseRound(ThreadRecord& record, uint32_t step) {
    for (uint32_t i = 0; i < pausesOfRound && record.report != Report::stop; ++i)
        for (uint32_t left = step; left > 0 && record.report != Report::stop && programState().quitFlag == 0;) {
            const uint32_t piece = std::min(left, longestPause);
            Timer::sleep(piece);
            left -= piece;
            reportStatus(record.report, false);
        }
}

void sampleInRounds(ThreadRecord& record, OscQuery* query) {
    const int32_t interval = runtallyState().settings.performancePollInterval.getSeconds();
    const uint32_t step = static_cast<uint32_t>(interval) * millisecondsOfSecond / pausesOfRound;
    runRounds(record, pace, [&](const DateTime&) {
        const bool sampled = sampleRound(query, record.name);
        if (sampled)
            pauseRound(record, step);
        return sampled;
    });
}

void reportStructured(const StructuredException& failure) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "perfMonitor: Exception Code 0x%08x", failure.code);
    logger().warning(RuntallyMessage::workerException, text.data());
}
} // namespace

bool readCounterEntries(const std::string& fileName, std::vector<CounterEntry>& entries, const FindingSink& sink) {
    FilePlain file(fileName);
    if (!file.exists() || file.size() == 0)
        return false;
    file.open(FileBase::ACCESS_READ);
    for (int32_t number = 1; !file.eof(); ++number) {
        std::string line;
        file.readLine(line);
        trimBlanks(line);
        if (line.empty() || line.front() == '#')
            continue;
        entries.push_back(readEntry(line));
        entries.back().line = number;
        tellEntry(entries, line, sink);
    }
    return true;
}

bool readCountersFile(const std::string& fileName) {
    std::vector<CounterEntry>& entries = performance().counters;
    entries.clear();
    performance().counterIds.clear();
    try {
        if (!readCounterEntries(fileName, entries))
            return false;
    } catch (const Exception&) {
        return false;
    }
    try {
        if (!findCounters())
            return false;
    } catch (...) {
        logger().critical(RuntallyMessage::noMemory, "readCountersFile");
    }
    return !entries.empty();
}

uint32_t perfMonitor(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    try {
        logger().debug(1, "START THREAD %s.", record.name);
        std::unique_ptr<OscQuery> query = OscOpenQuery(0);
        logger().debug(5, "perfMonitor: OscOpenQuery returned %i", numberOf(query));
        if (!query)
            return failedThread;
        sampleInRounds(record, query.get());
        logger().debug(5, "perfMonitor: OscCloseQuery on %i", numberOf(query));
        OscCloseQuery(query);
    } catch (const StructuredException& failure) {
        reportStructured(failure);
    } catch (...) {
        logger().debug(1, "Fatal Exception in %s", record.name);
        logger().error(RuntallyMessage::monitorUnknownError);
    }
    logger().debug(1, "END THREAD %s.", record.name);
    return 0;
}

} // namespace Velmor
