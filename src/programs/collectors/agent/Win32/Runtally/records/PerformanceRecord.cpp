// What the performance counters of a process amount to.

#include "programs/collectors/agent/Win32/Runtally/records/PerformanceRecord.h"

#include "platform/Errors.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/records/RecordText.h"
#include "programs/collectors/agent/Win32/Runtally/state/RegistryHold.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "records/RecordFormat.h"
#include "rules/PrimeTime.h"

#include <cstdlib>

namespace Velmor {

namespace {
constexpr int32_t memoryInterval = 3600; // seconds between two looks at the machine's memory
constexpr uint32_t bytesOfMb = 1048576;
constexpr uint32_t bitsOfMb = 20;
constexpr int decimals = 8;
constexpr double hundred = 100;
constexpr const char* performanceDataType = "perfmon";

/// The moment of a record, and what the process said of its end then.
struct RecordMoment {
    int32_t time = 0; // seconds since 1970
    uint32_t exitCode = 0;
    bool isDump = false; // of a process that runs on: the gathering starts anew

    bool isRunning() const { return exitCode == stillActive; }
};

/// What a record says.
struct PerformanceFigures {
    double elapsed = 0; // seconds since the record before
    double cpu = 0;     // processors in use
    double memory = 0;  // bytes
    double io = 0;      // bytes, as the counter counts them
};

const Logger& logger() {
    return runtallyState().logger;
}

std::string text(double value) {
    return doubleToString(value, decimals);
}

void readTotalMemory(int32_t time) {
    PerformanceState& state = runtallyState().performance;
    if (state.memoryUnknown || time < int64_t{state.memoryReadAt} + memoryInterval)
        return;
    state.memoryReadAt = time;
    const uint64_t bytes = platform().machine->physicalMemory();
    state.memoryUnknown = bytes == 0;
    state.totalMemoryMb = state.memoryUnknown ? 1 : bytes >> bitsOfMb;
    if (state.memoryUnknown)
        logger().debug(1, "logPerfMonData: Error: Unable to find GlobalMemoryStatusEx");
}

/// Whether a counter has the role of that name; one whose name nobody knows has none.
bool hasRole(const ProcessCounter& counter, std::string_view name) {
    const auto& ids = runtallyState().performance.counterIds;
    const auto found = ids.find(name);
    return found != ids.end() && found->second != 0 && found->second == counter.counterId;
}

void reportInvalid(const ProcessCounter& counter, const RecordMoment& moment) {
    if (counter.status == 0)
        return;
    if (LoggerUnit::getDebugLevel() == 5) {
        if (counter.samples > 0)
            logger().debug(1, "Don't have a valid last poll for process %i, so we use the value from the poll before",
                           counter.pid);
        else
            logger().debug(1, "Failed to ever poll process %i", counter.pid);
    }
    if (moment.isRunning())
        logger().debug(3, "WARNING: Invalid counter=%i, but process PID=%i still active", counter.counterId,
                       counter.pid);
    else
        logger().debug(5, "Invalid counter=%i, as process PID=%i has ended", counter.counterId, counter.pid);
}

/// What a counter's gathered value amounts to; one that was never polled is 0.
double resultOf(const ProcessCounter& counter) {
    if (counter.samples == 0)
        return 0;
    const bool isSum = counter.mode == GatherMode::sum || counter.mode == GatherMode::average;
    const double result = isSum ? counter.value / counter.samples : counter.value;
    if (result >= 0)
        return result;
    logger().debug(5, "WARNING: Negative Value Counter, PID:%i, CID:%i, CtrValue:%f, CalcVal:%f", counter.pid,
                   counter.counterId, counter.value, result);
    return 0;
}

double elapsedOf(const Process& process, const ProcessCounter& counter, const RecordMoment& moment) {
    const int64_t base = moment.isRunning() ? moment.time : process.getEnd().getSeconds();
    const int64_t before = counter.lastRecord > 0 ? counter.lastRecord : process.getStart().getSeconds();
    return static_cast<double>(std::abs(base - before));
}

void takeFigure(const Process& process, const ProcessCounter& counter, double result, const RecordMoment& moment,
                PerformanceFigures& figures) {
    if (hasRole(counter, "Elapsed Time"))
        figures.elapsed = elapsedOf(process, counter, moment);
    else if (hasRole(counter, "% Processor Time"))
        figures.cpu = result / hundred;
    else if (hasRole(counter, "Private Bytes"))
        figures.memory = result;
    else if (hasRole(counter, "IO Data Bytes/sec"))
        figures.io = result;
}

/// A counter that is good has been in a record now; one that failed keeps what it has for the next.
void closeCounter(ProcessCounter& counter, const RecordMoment& moment) {
    if (counter.status != 0)
        return;
    counter.lastRecord = moment.time;
    if (!moment.isDump)
        return;
    counter.value = startValue(counter.mode);
    counter.samples = 0;
}

PerformanceFigures takeFigures(Process& process, const RecordMoment& moment) {
    PerformanceFigures figures;
    for (ProcessCounter& counter : process.counters()) {
        reportInvalid(counter, moment);
        const double result = resultOf(counter);
        if (logger().passes(5))
            logger().debug(5, "Value of counter %i is %s", counter.counterId, text(result));
        takeFigure(process, counter, result, moment, figures);
        closeCounter(counter, moment);
    }
    return figures;
}

bool isWanted(const Process& process, const PerformanceFigures& figures) {
    RuleFacts facts(RuleKey::datatype, "process");
    facts.setText(RuleKey::exe, process.getExecutable());
    facts.setText(RuleKey::app, process.getApplication());
    facts.setNumber(RuleKey::duration, (process.getEnd() - process.getStart()).getSeconds());
    facts.setNumber(RuleKey::cpu, figures.cpu);
    facts.setNumber(RuleKey::io, figures.io);
    facts.setNumber(RuleKey::memory, figures.memory);
    setUserFacts(facts, process.getUser());
    return isIncluded("logPerfMonData", "Process", facts);
}

std::string identityLine(const Process& process, uint32_t exitCode) {
    const StaticInfo& machine = programState().staticInfo;
    std::string line = RecordText::opening(process.getStart().getSeconds(), RecordFormat::performance);
    RecordText::addField(line, "undef");
    RecordText::addField(line, process.getAccount());
    RecordText::addField(line, Process::getLocalComputerName());
    RecordText::addField(line, machine.architecture);
    RecordText::addField(line, machine.osName);
    RecordText::addPlainField(line, RecordText::executableName(process));
    RecordText::addField(line, RecordText::exitCode(exitCode));
    RecordText::addField(line, machine.domain);
    RecordText::addField(line, getClassText(process.getStart()));
    RecordText::addPlainField(line, process.getApplication());
    return line;
}

std::string measureLine(const PerformanceFigures& figures) {
    const auto totalMb = static_cast<double>(runtallyState().performance.totalMemoryMb);
    const double memorySeconds = figures.elapsed * figures.memory;
    std::string line = "1";
    for (const double value :
         {figures.elapsed * figures.cpu, figures.elapsed, figures.io, figures.cpu * hundred, figures.elapsed,
          hundred * figures.elapsed * figures.memory / bytesOfMb / totalMb, memorySeconds, memorySeconds})
        line.append(":").append(text(value));
    return line;
}

void traceFigures(const PerformanceFigures& figures) {
    if (LoggerUnit::getDebugLevel() != 5)
        return;
    const auto totalMb = static_cast<double>(runtallyState().performance.totalMemoryMb);
    logger().debug(5, "total_mem_mb=" + text(totalMb) + ", elapsed_time=" + text(figures.elapsed) +
                          ", avg_cpu=" + text(figures.cpu) + ", avg_mem_bytes=" + text(figures.memory) + " (" +
                          text(figures.memory / bytesOfMb) + " mb), io_bytes=" + text(figures.io));
}
} // namespace

void logPerfMonData(const ProcessPointer& process, int32_t dumpTime) {
    if (!process->isMonitored())
        return;
    logger().debug(4, "logPerfMonData: Writing \"%s\" (%u) to file...", process->getApplication(), process->pid());
    RecordMoment moment;
    moment.isDump = dumpTime > 0;
    moment.time = moment.isDump ? dumpTime : DateTime().getSeconds();
    moment.exitCode = process->getExitCode();
    if (dumpTime == 0 && moment.isRunning()) {
        logger().debug(5, "logPerfMonData: Not logging data for pid=%i, time=%i, exit_code=%i - still running",
                       process->pid(), dumpTime, moment.exitCode);
        return;
    }
    readTotalMemory(moment.time);
    logger().debug(4, "logPerfMonData: Dumping performance data for pid:%i", process->pid());
    const PerformanceFigures figures = takeFigures(*process, moment);
    if (!isWanted(*process, figures))
        return;
    traceFigures(figures);
    const std::string record = identityLine(*process, moment.exitCode) + "\n" + measureLine(figures);
    if (writeToDataFile(performanceDataType, record))
        logger().debug(5, "Logged performance data for process %i", process->pid());
}

void dumpPerfMon() {
    logger().debug(1, "Dumping performance data...");
    TimeSpan taken;
    {
        const AllCheckedOut hold;
        if (!hold) {
            logger().warning(RuntallyMessage::registryHeld, "dumpPerfMon");
            return;
        }
        const DateTime now;
        for (const auto& [pid, process] : runtallyState().registry.processMap)
            if (process->isMonitored())
                logPerfMonData(process, now.getSeconds());
        taken = DateTime() - now;
    }
    logger().debug(1, "All performance data has now been dumped. It took %s time.", taken.toString());
}

} // namespace Velmor
