// Random runs of the whole road of a process on a scripted machine. A run is replayed by its seed:
// VELMOR_SEED=<seed> VELMOR_SEEDS=1.

#include "collector/CollectorFixture.h"

#include "shared/library/common/files/FileUtils.h"
#include "support/Environment.h"
#include "support/NoSync.h"

#include <map>
#include <random>
#include <set>

namespace Velmor {

namespace {
constexpr int stepsOfRun = 500;

/// One run: a machine, what happens on it, and the books that must balance after each step. Each process has an
/// executable of its own, so that a record tells whose it is.
class RandomRunBooks {
public:
    explicit RandomRunBooks(uint32_t seed) : random_(seed), steadyClock_(seed % 2 == 0) {}

    void go() {
        for (int i = 0; i < stepsOfRun && !::testing::Test::HasFailure(); ++i) {
            const int kind = roll(100);
            if (kind < 30)
                start();
            else if (kind < 52)
                end();
            else if (kind < 57)
                reuse();
            else if (kind < 61)
                refuse();
            else if (kind < 66)
                stepClock();
            else if (kind < 70)
                deliver();
            else if (kind < 72)
                reconfigure();
            else
                poll();
            collector_.os.clock.advance(roll(4));
            balance();
        }
        deliver();
        checkRecords();
    }

private:
    int roll(int sides) { return static_cast<int>(random_() % static_cast<uint32_t>(sides)); }
    uint32_t anyPid() { return 100 + static_cast<uint32_t>(roll(40)); }
    std::string freshPath() { return "/apps/p" + std::to_string(++count_); }

    void start() {
        if (const uint32_t pid = anyPid(); !collector_.os.processes.contains(pid))
            collector_.os.processes.start(pid, freshPath());
    }

    void end() { collector_.os.processes.end(anyPid(), static_cast<uint32_t>(roll(3))); }

    void reuse() {
        const uint32_t pid = anyPid();
        collector_.os.processes.end(pid, 0);
        if (roll(2) == 0)
            poll();
        collector_.os.processes.start(pid, freshPath());
    }

    /// A process that can't be opened, or whose modules can't be read for a while.
    void refuse() {
        const uint32_t pid = anyPid();
        if (collector_.os.processes.contains(pid))
            return;
        ScriptedProcess& process = collector_.os.processes.start(pid, freshPath());
        if (roll(2) == 0)
            process.modulesFail = 1 + roll(5);
        else
            process.openError = roll(2) == 0 ? NativeError::accessDenied : NativeError::invalidParameter;
    }

    void stepClock() {
        if (steadyClock_)
            return;
        const int32_t seconds = roll(40) - 20;
        collector_.os.clock.step(seconds);
        stepped_ = stepped_ || seconds < 0;
    }

    void deliver() {
        deliveries_.insert(collector_.os.clock.now());
        collector_.deliver();
    }

    void poll() {
        collector_.poll();
        Runtally::logProcess(ProcessPointer(new Process(1, 1, Process::Mode::ended, true))); // an end without a start
    }

    void reconfigure() {
        logFileRegistry().clear();
        collector_.setPollInterval(1 + roll(5));
        registerLogFile(collector_.directory / "ProcessLog", "process", TimeSpan(), false, Runtally::dumpAll);
    }

    /// What runs under the registry is what the table scan knows, and nothing tracked starts in the future.
    void balance() {
        const int32_t now = collector_.os.clock.now();
        for (const auto& [pid, process] : collector_.tracked()) {
            ASSERT_EQ(pid, process->pid());
            firstStarts_.try_emplace(FileUtils::getBaseName(process->getExecutable()),
                                     process->getStart().getSeconds());
            if (!stepped_) {
                ASSERT_LE(process->getStart().getSeconds(), now) << pid;
            }
        }
        ASSERT_EQ(runtallyState().registry.processMonopoly.getCount(), 0);
        ASSERT_LE(runtallyState().registry.endedProcessMap.size(), 1U);
    }

    void checkRecords() {
        std::map<std::string, std::vector<UsageLine>> byProcess;
        for (const UsageLine& record : collector_.records()) {
            if (!stepped_) {
                ASSERT_LE(record.end(), collector_.os.clock.now());
            }
            byProcess[record.executable].push_back(record);
        }
        byProcess.erase("(ACCESS DENIED)"); // shared by several processes
        byProcess.erase("<<lost>>");
        checkLives(byProcess);
        for (const auto& [name, slices] : byProcess) {
            for (size_t i = 0; i < slices.size(); ++i) {
                ASSERT_EQ(slices[i].isFirst, i == 0) << name;
                ASSERT_GE(slices[i].duration, 0) << name;
                if (i == 0)
                    continue;
                // A delivery may see an end before the poll that reports it.
                ASSERT_TRUE(slices[i - 1].exitCode == "none" || slices[i].exitCode != "none") << name << " came back";
                ASSERT_EQ(slices[i].start, slices[i - 1].end()) << name << " has a gap or an overlap";
            }
        }
    }

    /// Whatever has been tracked is recorded from its start to its end, or to the last delivery if it is tracked still.
    void checkLives(const std::map<std::string, std::vector<UsageLine>>& byProcess) {
        if (stepped_) // then slices may have been dropped
            return;
        std::map<std::string, int32_t> tracked;
        for (const auto& [pid, process] : collector_.tracked())
            tracked[FileUtils::getBaseName(process->getExecutable())] = process->getStart().getSeconds();
        for (const auto& [name, start] : firstStarts_) {
            if (name.front() != 'p')
                continue; // a placeholder, shared by several processes
            const auto slices = byProcess.find(name);
            ASSERT_NE(slices, byProcess.end()) << name << " has no record";
            ASSERT_EQ(slices->second.front().start, start) << name;
            const auto still = tracked.find(name);
            const UsageLine& last = slices->second.back();
            if (still != tracked.end()) {
                ASSERT_EQ(last.end(), still->second) << name;
            } else {
                // An end that is dated before the last delivery, since polls are dated back, adds nothing to it.
                ASSERT_TRUE(last.exitCode != "none" || deliveries_.contains(last.end())) << name << " has no end";
            }
        }
    }

    std::minstd_rand random_;
    bool steadyClock_;
    Collector collector_;
    int count_ = 0;
    std::set<int32_t> deliveries_;
    std::map<std::string, int32_t> firstStarts_; // of all that has been tracked, by executable
    bool stepped_ = false;                       // the clock has been set back
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
