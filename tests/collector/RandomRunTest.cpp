// Random runs of the whole road of a process on a scripted machine: with each source and between them, with workers
// that are ended by force, disks that take nothing and clocks that are set. A run is replayed by its seed:
// VELMOR_SEED=<seed> VELMOR_SEEDS=1.

#include "collector/CollectorFixture.h"

#include "platform/MessageQueues.h"
#include "platform/Threads.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"
#include "programs/collectors/agent/Win32/Runtally/workers/SourceChange.h"
#include "shared/library/common/files/FileUtils.h"
#include "support/Environment.h"
#include "support/NoSync.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <random>
#include <set>

namespace Velmor {

namespace {
constexpr int stepsOfRun = 300;
constexpr int longestInterval = 5; // seconds between polls

/// A thread's forced end. Unlike the true one it unwinds, which frees the locks as the supervisor would.
struct ForcedEnd {};

bool isDiskFull = false;

/// Lets the disk be full at times while it lives.
struct FickleDisk : ReplacedCalls {
    FickleDisk() {
        systemCalls().write = [](int file, const void* buffer, size_t size) -> ssize_t {
            errno = ENOSPC;
            return isDiskFull ? -1 : ::write(file, buffer, size);
        };
    }
};

/// What is true of a process. Each has an executable of its own, so that a record tells whose it is.
struct Life {
    uint32_t pid = 0;
    int32_t start = 0;
    int32_t end = 0; // 0: it runs
    uint32_t exitCode = 0;
    bool isPlain = true;     // it can be opened
    bool isSeen = false;     // by a source
    bool isKnown = false;    // likewise, and not given up since
    int32_t endSeenAt = 0;   // 0: not yet
    bool hasNewLife = false; // while no source was on, it was given up
};

/// One run: a machine, what happens on it, and the books that must balance after each step.
class RandomRunBooks {
public:
    explicit RandomRunBooks(uint32_t seed) : random_(seed), steadyClock_(seed % 2 == 0) {
        os().eventSchema.describeProcesses();
        os().kernelTrace.endsWhenRead = false;
        os().processes.onCall = os().versionResources.onCall = os().kernelTrace.onWait = [this] {
            if (isDeferred_ || callsToLive_ == 0 || --callsToLive_ > 0)
                return;
            wasKilled_ = true;
            throw ForcedEnd();
        };
        uint32_t message = 0;
        platform().messageQueues->peek(message); // this thread, which is the tracer's at times, has a queue
        runtallyState().programStart = os().clock.now();
        useSources(roll(3) != 0, roll(2) == 0);
        look();
    }
    RandomRunBooks(const RandomRunBooks&) = delete;
    RandomRunBooks& operator=(const RandomRunBooks&) = delete;
    ~RandomRunBooks() {
        isDiskFull = false;
        os().processes.onCall = os().versionResources.onCall = os().kernelTrace.onWait = nullptr;
    }

    void go() {
        for (int i = 0; i < stepsOfRun && !::testing::Test::HasFailure(); ++i) {
            step(roll(100));
            os().clock.advance(roll(4));
            balance();
        }
        isDiskFull = false;
        look();
        deliver();
        checkRecords();
    }

private:
    ScriptedPlatform& os() { return collector_.os; }
    RuntallySettings& settings() { return runtallyState().settings; }
    bool isTraced() const { return collector_.os.kernelTrace.runs; }
    int roll(int sides) { return static_cast<int>(random_() % static_cast<uint32_t>(sides)); }
    uint32_t anyPid() { return 100 + static_cast<uint32_t>(roll(40)); }

    void step(int kind) {
        const std::pair<int, std::function<void()>> deeds[] = {
            {28, [&] { start(anyPid()); }},
            {48, [&] { end(anyPid(), static_cast<uint32_t>(roll(3))); }},
            {53, [&] { reuse(anyPid()); }},
            {58, [&] { stepClock(); }},
            {62, [&] { deliver(); }},
            {65, [&] { useSources(roll(3) != 0, roll(2) == 0); }},
            {67, [&] { isDiskFull = !isDiskFull; }},
            {71, [&] { killIn(1 + roll(60)); }},
            {100, [&] { look(); }}};
        std::ranges::find_if(deeds, [&](const auto& deed) { return kind < deed.first; })->second();
    }

    /// Starts a process if the id is free; at times one that can't be opened, or not be read for a while.
    void start(uint32_t pid) {
        // Polls know an id only: one that came again between two of them would be the same process.
        const Life* former = last_.contains(pid) ? &lives_.at(last_[pid]) : nullptr;
        if (former && (former->end == 0 || (former->endSeenAt == 0 && !isTraced())))
            return;
        const std::string name = "p" + std::to_string(lives_.size() + 1);
        ScriptedProcess& process = os().processes.start(pid, "/apps/" + name);
        Life& life = lives_[name];
        life.pid = pid;
        life.start = os().clock.now();
        const int kind = roll(20);
        if (kind == 0)
            process.modulesFail = 1 + roll(5);
        if (kind == 1)
            process.openError = NativeError::accessDenied;
        life.isPlain = kind > 1;
        running_[pid] = last_[pid] = name;
        tell(1, pid, name);
    }

    void end(uint32_t pid, uint32_t exitCode) {
        const auto found = running_.find(pid);
        if (found == running_.end())
            return;
        Life& life = lives_.at(found->second);
        life.end = os().clock.now();
        life.exitCode = exitCode;
        tell(2, pid, found->second);
        os().processes.end(pid, exitCode);
        running_.erase(found);
    }

    void reuse(uint32_t pid) {
        end(pid, 0);
        if (roll(2) == 0)
            look();
        start(pid);
    }

    /// An event, as a session tells it.
    void tell(uint8_t type, uint32_t pid, const std::string& name) {
        if (!isTraced())
            return;
        ScriptedEvent event{type, 2, os().clock.now(), processPayload(pid, "/apps/" + name)};
        const auto process = os().processes.table().at(pid);
        ScriptedProcesses::Table& traced = os().processes.traced;
        // An event that was begun with is finished with.
        event.before = [this, &traced, type, pid, process] {
            isDeferred_ = true;
            if (type == 1)
                traced[pid] = process;
        };
        event.behind = [this, &traced, type, pid, process] {
            isDeferred_ = false;
            if (const auto note = traced.find(pid); type == 2 && note != traced.end() && note->second == process)
                traced.erase(note);
        };
        os().kernelTrace.events.push_back(event);
    }

    void stepClock() {
        if (steadyClock_)
            return;
        const int32_t seconds = roll(40) - 20;
        os().clock.step(seconds);
        stepped_ = stepped_ || seconds < 0;
    }

    void deliver() {
        deliveries_.insert(os().clock.now());
        try {
            collector_.deliver();
        } catch (const ForcedEnd&) {
            collector_.deliver(); // by the thread that was started anew
        }
    }

    void killIn(int calls) {
        callsToLive_ = calls;
        if (roll(4) == 0)
            deliver();
        else
            look();
        callsToLive_ = 0;
        wasKilled_ = false;
    }

    /// What a new configuration does when it names other sources.
    void useSources(bool polling, bool events) {
        if (isTraced())
            trace(); // an order to end lets it take what waits
        const bool wereActive = settings().eventsActive.exchange(events ? 1 : 0) == 1;
        settings().pollingOn = polling;
        collector_.setPollInterval(1 + roll(longestInterval));
        leaveSources(wereActive);
        if (!events)
            os().processes.traced.clear();
        if (settings().hasSource())
            return;
        deliver();
        Runtally::giveTrackedUp();
        for (auto& [name, life] : lives_) {
            life.hasNewLife = true;
            life.isKnown = false;
        }
    }

    /// Lets each source do what there is to do.
    void look() {
        try {
            if (settings().eventsActive == 1)
                trace();
            if (settings().pollingOn)
                procPoll();
        } catch (const ForcedEnd&) {
            return; // the next look goes on
        }
        callsToLive_ = 0;
        if (settings().hasSource() && !wasKilled_)
            noteSeen();
    }

    /// A turn of the tracer's thread, which is told to end; if there are both, the first poll comes while it waits.
    void trace() {
        const bool isFirst = !isTraced();
        if (isFirst)
            os().processes.traced = os().processes.table();
        os().clock.onSleep = [this] {
            if (settings().pollingOn && !runtallyState().polledOnce && std::exchange(mayPoll_, false))
                procPoll();
            mayPoll_ = true;
        };
        platform().messageQueues->post(platform().threads->currentId(), WindowMessage::destroy);
        ThreadRecord record("EventTracer", 0);
        eventTracer(&record);
        os().clock.onSleep = nullptr;
        for (uint32_t message = 0; platform().messageQueues->peek(message);) // of a thread that was killed
            continue;
    }

    void noteSeen() {
        if (!os().kernelTrace.events.empty())
            return;
        Runtally::retryPendingInfo();
        for (auto& [name, life] : lives_) {
            if (life.end == 0)
                life.isSeen = life.isKnown = true;
            else if (life.endSeenAt == 0)
                life.endSeenAt = os().clock.now();
        }
        // What runs is tracked or waits for its name, and nothing else is.
        const ProcessMap& waiting = runtallyState().registry.pendingInfoMap;
        for (const auto& [pid, name] : running_) {
            ASSERT_TRUE(collector_.tracked().contains(pid) || waiting.contains(pid)) << name << " is missing";
            if (lives_.at(name).isPlain) {
                ASSERT_EQ(FileUtils::getBaseName(collector_.tracked().at(pid)->getExecutable()), name);
            }
        }
        for (const auto& [pid, process] : collector_.tracked())
            ASSERT_TRUE(running_.contains(pid)) << process->getExecutable() << " has ended";
    }

    void balance() {
        const int32_t now = os().clock.now();
        for (const auto& [pid, process] : collector_.tracked()) {
            ASSERT_EQ(pid, process->pid());
            if (!stepped_) {
                ASSERT_LE(process->getStart().getSeconds(), now) << pid;
            }
        }
        ASSERT_EQ(runtallyState().registry.processMonopoly.getCount(), 0);
        // What ended between the begin of a session and the first look at the table has no start that could come.
        for (const auto& [pid, end] : runtallyState().registry.endedProcessMap)
            ASSERT_FALSE(lives_.at(FileUtils::getBaseName(end->getExecutable())).isKnown) << pid;
    }

    void checkRecords() {
        std::map<std::string, std::vector<UsageLine>> byProcess;
        for (const UsageLine& record : collector_.records())
            byProcess[record.executable].push_back(record);
        for (const auto& [name, life] : lives_)
            if (life.isPlain)
                checkLife(name, life, byProcess[name]);
    }

    void checkLife(const std::string& name, const Life& life, const std::vector<UsageLine>& slices) {
        for (size_t i = 0; i < slices.size(); ++i) {
            ASSERT_GE(slices[i].duration, 0) << name;
            ASSERT_TRUE(slices[i].isFirst == (i == 0) || life.hasNewLife) << name;
            if (i == 0 || stepped_)
                continue;
            // A delivery may see an end before the poll that reports it.
            ASSERT_TRUE(slices[i - 1].exitCode == "none" || slices[i].exitCode != "none") << name << " came back";
            if (life.hasNewLife) {
                ASSERT_GE(slices[i].start, slices[i - 1].end()) << name << " overlaps";
            } else {
                ASSERT_EQ(slices[i].start, slices[i - 1].end()) << name << " has a gap or an overlap";
            }
        }
        if (stepped_) // then slices may have been dropped
            return;
        ASSERT_FALSE(life.isSeen && slices.empty()) << name << " has no record";
        if (slices.empty())
            return;
        ASSERT_GE(slices.front().start, life.start - longestInterval / 2) << name << " began later";
        if (life.end == 0) {
            ASSERT_TRUE(!settings().hasSource() || slices.back().end() == *deliveries_.rbegin()) << name;
        } else if (life.endSeenAt != 0 && !life.hasNewLife) {
            ASSERT_LE(slices.back().end(), life.endSeenAt) << name << " has slices after its end";
            ASSERT_TRUE(slices.back().exitCode == std::to_string(life.exitCode) ||
                        deliveries_.contains(slices.back().end()))
                << name << " ended with " << life.exitCode << " and not " << slices.back().exitCode;
        }
    }

    std::minstd_rand random_;
    bool steadyClock_;
    Collector collector_;
    FickleDisk disk_;
    int callsToLive_ = 0; // of the worker that runs; 0: for good
    bool isDeferred_ = false;
    bool wasKilled_ = false;
    bool mayPoll_ = true;
    std::map<std::string, Life> lives_;
    std::map<uint32_t, std::string> running_;
    std::map<uint32_t, std::string> last_; // that had the id
    std::set<int32_t> deliveries_;
    bool stepped_ = false; // the clock has been set back
};
} // namespace

TEST(RandomRun, BooksBalance) {
    const NoSync noSync;
    const int first = fromEnvironment("VELMOR_SEED", 1);
    const int seeds = fromEnvironment("VELMOR_SEEDS", 2000);
    for (int seed = first; seed < first + seeds && !HasFailure(); ++seed) {
        SCOPED_TRACE("VELMOR_SEED=" + std::to_string(seed));
        RandomRunBooks(static_cast<uint32_t>(seed)).go();
    }
}

} // namespace Velmor
