#include "programs/collectors/agent/DataDelivery.h"

#include "platform/Platform.h"
#include "platform/Threads.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/ProgramState.h"
#include "shared/library/common/time/Timer.h"

namespace Velmor {

namespace {
const TimeSpan tickSpan(10);
const WorkerPace pace{TimeSpan(20), 500, true};

DateTime alignedNow(const TimeSpan& span) {
    DateTime now;
    now.alignTo(span);
    return now;
}

void deliver(const std::string& key, const LogFileEntry& entry) {
    if (entry.beforeDelivery)
        entry.beforeDelivery();
    releaseLogFile(key);
}

/// Whether the entry's period has passed; if so, the next one begins. The schedule is the aligned clock's: a change of
/// daylight saving moves it, and periods that were missed are not caught up.
bool isDue(const std::string& key, LogFileEntry& entry, const DateTime& now) {
    if (entry.lastDelivered.isZero()) {
        entry.lastDelivered = alignedNow(entry.interval);
        return false;
    }
    const int64_t passed = int64_t{now.getSeconds()} - entry.lastDelivered.getSeconds();
    if (passed < entry.interval.getSeconds())
        return false;
    const bool missedPeriod = passed >= 2 * int64_t{entry.interval.getSeconds()};
    entry.lastDelivered = alignedNow(entry.interval);
    if (missedPeriod)
        agentLogger().debug(5, "Adjusted LastDelivered time of %s after resuming.", key);
    return true;
}

void adoptDefaultInterval() {
    const MonopolyHold hold(programState().deliveryMonopoly); // others may be looking at the intervals
    for (auto& [key, entry] : logFileRegistry())
        if (entry.interval.isZero())
            entry.interval = programState().defaultInterval;
}

void deliverInRounds(ThreadRecord& record) {
    DeliverySchedule schedule;
    adoptDefaultInterval();
    runRounds(record, pace, [&](const DateTime& now) {
        if (schedule.tick(now))
            DeliverySchedule::deliverDue(now);
        return true;
    });
}
} // namespace

LogFileRegistry& logFileRegistry() {
    static LogFileRegistry registry;
    return registry;
}

NewLogFiles::NewLogFiles() {
    entries().clear(); // of one whose thread was ended by force
    isOpen = true;
}

NewLogFiles::~NewLogFiles() {
    isOpen = false;
    entries().clear();
}

LogFileRegistry& NewLogFiles::entries() {
    static LogFileRegistry registry;
    return registry;
}

void NewLogFiles::putInForce() {
    LogFileRegistry& former = logFileRegistry();
    for (auto& [key, entry] : entries()) {
        const auto same = former.find(key);
        if (same == former.end())
            continue;
        if (same->second.stem == entry.stem)
            entry.file = same->second.file; // with the records that wait for room on the disk
        else
            entry.file->countOnFrom(*same->second.file);
    }
    former.swap(entries());
}

void registerLogFile(const std::string& stem, const std::string& key, const TimeSpan& interval, bool forcedOnly,
                     const BeforeDelivery& beforeDelivery) {
    LogFileRegistry& registry = NewLogFiles::isOpen ? NewLogFiles::entries() : logFileRegistry();
    const auto [place, isNew] = registry.try_emplace(key);
    if (!isNew)
        return;
    LogFileEntry& entry = place->second;
    entry.stem = stem;
    entry.file = SmartPointer<LogFile>(new LogFile());
    entry.file->setName(stem);
    entry.interval = interval;
    entry.forcedOnly = forcedOnly ? 1 : 0;
    entry.beforeDelivery = beforeDelivery;
}

SmartPointer<LogFile> getLogFile(const std::string& key) {
    agentLogger().debug(5, "Getting log file for ID=%s.", key);
    const auto entry = logFileRegistry().find(key);
    if (entry == logFileRegistry().end()) {
        agentLogger().debug(5, " Log file not found.");
        return {};
    }
    agentLogger().debug(5, "   Found log file.");
    return entry->second.file;
}

bool releaseLogFile(const std::string& key) {
    agentLogger().debug(1, "Releasing log file for %s...", key);
    const auto entry = logFileRegistry().find(key);
    if (entry == logFileRegistry().end() || entry->second.file.isNull())
        return true;
    LogFile& file = *entry->second.file;
    try {
        file.end();
    } catch (...) {
        agentLogger().error(AgentMessage::fileNotEnded, file.getName());
    }
    agentLogger().debug(1, "Log file released.");
    return true;
}

void deliverAll(bool force) {
    agentLogger().debug(1, "Now delivering all data...");
    for (const auto& [key, entry] : logFileRegistry())
        if (!entry.forcedOnly || force)
            deliver(key, entry);
}

DeliverySchedule::DeliverySchedule() : nextTick_(alignedNow(tickSpan)) {}

bool DeliverySchedule::tick(const DateTime& now) {
    if (nextTick_ > now)
        return false;
    nextTick_ += tickSpan;
    if (nextTick_ <= now)
        nextTick_ = alignedNow(tickSpan);
    return true;
}

void DeliverySchedule::deliverDue(const DateTime& now) {
    for (auto& [key, entry] : logFileRegistry())
        if (isDue(key, entry, now))
            deliver(key, entry);
}

uint32_t dataDelivery(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    agentLogger().debug(1, "START THREAD %s (%i).", record.name, platform().threads->currentId());
    try {
        deliverInRounds(record);
    } catch (...) {
        agentLogger().debug(1, "ERROR while running %s thread", record.name);
    }
    agentLogger().debug(1, "END THREAD" + record.name);
    return 0;
}

} // namespace Velmor
