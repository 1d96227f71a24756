// The real collector for a long time under everything at once: short processes, long ones, kills, changes of its
// sources, commands, signals, threads that stand still for a while or until they are ended by force, and restarts,
// judged by the system's own accounting. VELMOR_SOAK says for how many seconds it runs; without it, for half a minute.

#include "ProcessAccounting.h"
#include "RunningCollector.h"

#include "support/DataFiles.h"
#include "support/Eventually.h"
#include "support/RecordReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Velmor {

namespace {
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr int mostLong = 60;      // long processes at a time
constexpr double tolerance = 3.1; // seconds; polling looks once in two
constexpr double pollingInterval = 2;
constexpr double memoryGrowth = 1.05;
constexpr double arenas = 4096; // KiB that the allocator may hold more or less of, by the threads that there were
constexpr double accountingGrain = 1.1; // seconds: the accounting's starts are whole ones
constexpr auto hang = 2500ms;
constexpr auto stubbornness = 5000ms;              // longer than a worker has to end at a reconfiguration
constexpr std::chrono::seconds killingFrom = 600s; // shorter runs end no worker by force
constexpr std::chrono::seconds settlingTime = 60s; // after which figures must not grow

std::chrono::seconds soakTime() {
    const char* text = std::getenv("VELMOR_SOAK");
    return std::chrono::seconds(text ? std::atoi(text) : 30);
}

enum class Source { events, polling, both };

std::string logging(Source source) {
    const std::string polling = source == Source::events ? "false" : "true";
    const std::string events = source == Source::polling ? "false" : "true";
    return "process-data () = \"\" { polling (Bool) = " + polling +
           " { interval (TimeSpan) = P2S { } } events (Bool) = " + events + " { native (Bool) = " + events +
           " { } } }\n";
}

/// A time in which no collector ran, from the order to end until the next one was started; seconds since 1970.
struct Gap {
    double begin = 0;
    double end = 0;
    bool isNear(double time) const { return time > begin - accountingGrain && time < end + accountingGrain; }
};

/// A life as one collector saw it.
struct Piece {
    double start = 0;
    double end = 0;
    std::string exitCode;
};

double wallClock() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// What a program holds of the machine.
struct Figures {
    size_t threads = 0;
    size_t descriptors = 0;
    double memory = 0; // KiB
};

Figures figuresOf(pid_t pid) {
    Figures figures;
    const std::string place = "/proc/" + std::to_string(pid);
    for (const auto& entry : std::filesystem::directory_iterator(place + "/fd"))
        figures.descriptors += entry.path().empty() ? 0 : 1;
    std::ifstream status(place + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("Threads:"))
            figures.threads = std::stoul(line.substr(8));
        if (line.starts_with("VmRSS:"))
            figures.memory = std::stod(line.substr(6));
    }
    return figures;
}

class Soak : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "process events and accounting need root";
        prefix_ = "k" + std::to_string(getpid());
        chmod(directory_.path().c_str(), 0755);
        std::filesystem::copy_file("/bin/true", program("t"));
        std::filesystem::copy_file("/bin/false", program("f"));
    }

    std::string program(const std::string& name) const { return directory_ / (prefix_ + name); }

    static pid_t spawn(const std::string& path, const std::string& argument) {
        const pid_t child = vfork();
        if (child == 0) {
            execl(path.c_str(), path.c_str(), argument.empty() ? nullptr : argument.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }

    /// Lets time go by, with programs that end at once where they are seen.
    void passTime(std::chrono::milliseconds time) {
        if (source_ == Source::polling) // which misses short ones, and knows no execution from the fork before it
            std::this_thread::sleep_for(time);
        else
            runShort(time);
    }

    void runShort(std::chrono::milliseconds time) {
        const auto end = SteadyClock::now() + time;
        for (int i = 0; SteadyClock::now() < end; ++i) {
            const char* name = i % 2 == 0 ? "t" : "f";
            waitpid(spawn(program(name), ""), nullptr, 0);
            ++short_[name];
            if (i % 20 == 0)
                usleep(20000);
        }
    }

    /// A program of a name of its own that runs for some seconds, so that its records can be told from all others.
    void startLong() {
        if (long_.size() >= mostLong)
            return;
        const std::string path = program("l" + std::to_string(++longCount_) + "_");
        std::filesystem::copy_file("/bin/sleep", path);
        long_[spawn(path, std::to_string(7 + random_() % 40))] = path;
    }

    void killOne() {
        if (!long_.empty() && random_() % 3 == 0)
            kill(long_.begin()->first, SIGKILL); // the oldest: polling knows it
    }

    void reap() {
        int status = 0;
        for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0; ended = waitpid(-1, &status, WNOHANG))
            if (const auto known = long_.find(ended); known != long_.end()) {
                std::filesystem::remove(known->second);
                long_.erase(known);
            }
    }

    void change(Source source) {
        source_ = source;
        collector_->writeConfiguration("    interval (TimeSpan) = P1M { }\n", logging(source));
        collector_->passLog();
        if (random_() % 2 == 0)
            collector_->program().signal(SIGHUP);
        else
            collector_->control("reconfigure");
        awaitChange();
    }

    void awaitChange() {
        ASSERT_TRUE(becomesReady()) << "it takes a configuration over";
        if (source_ != Source::polling) {
            ASSERT_TRUE(collector_->awaitLog("Native event tracer is now running."));
        }
    }

    std::string tasks() const { return "/proc/" + std::to_string(collector_->program().pid()) + "/task"; }

    /// Holds one of its threads, whichever, as a file system does that doesn't answer. 0 if that thread has ended
    /// meanwhile.
    pid_t holdAThread() {
        std::vector<pid_t> threads;
        for (const auto& entry : std::filesystem::directory_iterator(tasks()))
            if (entry.path().filename() != std::to_string(collector_->program().pid()))
                threads.push_back(std::stoi(entry.path().filename()));
        const pid_t held = threads.at(random_() % threads.size());
        if (ptrace(PTRACE_SEIZE, held, nullptr, nullptr) != 0)
            return 0;
        ptrace(PTRACE_INTERRUPT, held, nullptr, nullptr);
        waitpid(held, nullptr, __WALL);
        return held;
    }

    void hangAThread() {
        holds_.push_back({wallClock(), 0});
        const pid_t held = holdAThread();
        passTime(hang);
        ptrace(PTRACE_DETACH, held, nullptr, nullptr);
        holds_.back().end = wallClock() + pollingInterval;
    }

    /// A reconfiguration ends its workers: the one that stands still by force.
    void killAWorker() {
        collector_->passLog();
        holds_.push_back({wallClock(), 0});
        const pid_t held = holdAThread();
        collector_->program().signal(SIGHUP);
        passTime(stubbornness);
        ptrace(PTRACE_DETACH, held, nullptr, nullptr);
        awaitChange();
        holds_.back().end = wallClock() + pollingInterval;
        killed_ += held != 0 && !std::filesystem::exists(tasks() + "/" + std::to_string(held)) ? 1 : 0;
    }

    void restart() {
        Gap gap{wallClock(), 0};
        ASSERT_EQ(collector_->stop(), 0);
        gap.end = wallClock(); // what runs by then is entered as started with the collector
        collector_->passLog();
        ASSERT_TRUE(collector_->start());
        if (source_ != Source::polling) {
            ASSERT_TRUE(collector_->awaitLog("Native event tracer is now running."));
        }
        gaps_.push_back(gap);
    }

    bool becomesReady() {
        std::string state = collector_->nextState();
        while (!state.empty() && state != "READY")
            state = collector_->nextState();
        return !state.empty();
    }

    /// What the collector said that the kernel could not keep, as while others start thousands in a second in which its
    /// reader is held.
    void noteLosses() {
        std::istringstream log(readFile(collector_->directory() / "RuntallyDebug.log"));
        for (std::string line; std::getline(log, line);)
            for (const std::string_view message : {"(2.08.41)", "(2.08.50)"})
                if (const size_t place = line.find(message); place != std::string::npos)
                    lost_ += std::stoul(line.substr(line.find("Parameters: ", place) + 12));
    }

    /// Each short process that wasn't lost is counted once, and each long one has a chain of slices that touch from its
    /// start to its end, one for each collector that saw it.
    void judge(const std::vector<AccountedProcess>& ended) {
        std::map<std::string, std::vector<UsageLine>> records;
        for (const UsageLine& record : parseRecords(dataText(collector_->directory() / "data", "ProcessLog")))
            if (record.executable.starts_with(prefix_))
                records[record.executable].push_back(record);
        for (const auto& [name, count] : short_) { // one may have run just when all got a slice
            const std::vector<UsageLine>& all = records[prefix_ + name];
            const auto found =
                static_cast<size_t>(std::count_if(all.begin(), all.end(), [](auto& record) { return record.isFirst; }));
            EXPECT_LE(found, count) << name;
            EXPECT_GE(found + lost_, count) << name;
        }
        size_t wrong = 0;
        for (const AccountedProcess& process : ended) {
            if (!process.command.ends_with('_'))
                continue;
            std::vector<UsageLine>& slices = records[process.command];
            std::stable_sort(slices.begin(), slices.end(),
                             [](const auto& a, const auto& b) { return a.start < b.start; });
            const bool isRight = tells(chainsOf(slices), process);
            wrong += isRight ? 0 : 1;
            EXPECT_TRUE(isRight) << process.command << " from " << static_cast<int64_t>(process.start) << " to "
                                 << static_cast<int64_t>(process.end) << " with " << process.exitCode << ":\n"
                                 << textOf(slices);
            if (wrong > 10)
                return;
        }
    }

    using Chain = std::vector<UsageLine>;
    static std::vector<Chain> chainsOf(const std::vector<UsageLine>& slices) {
        std::vector<Chain> chains;
        for (const UsageLine& slice : slices) {
            if (slice.isFirst || chains.empty())
                chains.emplace_back();
            chains.back().push_back(slice);
        }
        return chains;
    }

    bool tells(const std::vector<Chain>& chains, const AccountedProcess& process) const {
        std::vector<Piece> pieces;
        double begin = process.start;
        for (const Gap& gap : gaps_) {
            if (gap.end < process.start || gap.begin > process.end)
                continue;
            pieces.push_back({begin, gap.begin, "none"});
            begin = gap.end;
        }
        if (begin < process.end)
            pieces.push_back({begin, process.end, std::to_string(process.exitCode)});
        // Close to a gap the accounting can't tell which collector, if any, saw the end.
        const bool isSure =
            std::none_of(gaps_.begin(), gaps_.end(), [&](auto& gap) { return gap.isNear(process.end); });
        if (isSure && chains.size() != pieces.size())
            return false;
        for (size_t i = 0; i < std::min(chains.size(), pieces.size()); ++i)
            if (!fits(chains[i], pieces[i], isSure || i + 1 < pieces.size()))
                return false;
        return !chains.empty();
    }

    bool fits(const Chain& chain, const Piece& piece, bool isSure) const {
        return chain.front().isFirst && touch(chain) &&
               std::abs(chain.front().start - piece.start) < allowance(piece.start) &&
               std::abs(chain.back().end() - piece.end) < allowance(piece.end) &&
               (!isSure || chain.back().exitCode == piece.exitCode);
    }

    /// How far from the truth, in seconds, what happened then may be dated.
    double allowance(double time) const {
        double allowed = tolerance;
        for (const Gap& hold : holds_)
            if (hold.isNear(time))
                allowed = std::max(allowed, tolerance + hold.end - hold.begin);
        return allowed;
    }

    bool touch(const Chain& slices) const {
        for (size_t i = 1; i < slices.size(); ++i)
            if (slices[i].start != slices[i - 1].end() || slices[i].isFirst || !isOpenEnd(slices[i - 1], slices.back()))
                return false;
        return true;
    }

    /// A slice that is taken when the process has ended, but isn't known to have, bears the code of its end already.
    bool isOpenEnd(const UsageLine& slice, const UsageLine& last) const {
        return slice.exitCode == "none" ||
               (slice.exitCode == last.exitCode && last.duration <= std::max(2.0, allowance(slice.end()) - 1));
    }

    static std::string textOf(const std::vector<UsageLine>& slices) {
        std::string text;
        for (const UsageLine& s : slices)
            text += std::to_string(s.start) + " to " + std::to_string(s.end()) + (s.isFirst ? " first " : " further ") +
                    s.exitCode + "\n";
        return text;
    }

    TempDirectory directory_;
    std::string prefix_;
    std::unique_ptr<RunningCollector> collector_;
    std::mt19937 random_{2026};
    std::map<pid_t, std::string> long_;
    int longCount_ = 0;
    Source source_ = Source::events;
    std::vector<Gap> gaps_;
    std::vector<Gap> holds_; // in which nobody may have looked
    int killed_ = 0;
    size_t lost_ = 0; // events and names
    std::map<std::string, size_t> short_;
};
} // namespace

TEST_F(Soak, NothingIsMissingDoubledOrWrongAndNothingGrows) {
    ProcessAccounting accounting(directory_ / "pacct");
    if (!accounting.isOn())
        GTEST_SKIP() << "this kernel has no process accounting";
    collector_ = std::make_unique<RunningCollector>(
        "    interval (TimeSpan) = P1M { }\n", logging(Source::events),
        std::vector<RunningCollector::File>{{"include-exclude", "include datatype=*\n"}}, 1);
    ASSERT_TRUE(collector_->awaitLog("Native event tracer is now running."));
    const auto begin = SteadyClock::now();
    const auto end = begin + soakTime();
    const auto lastRestart = begin + soakTime() / 2; // what grows is seen behind it
    Figures early;
    while (SteadyClock::now() < end && !HasFatalFailure()) {
        for (int i = 0; i < 4; ++i) {
            if (source_ != Source::polling)
                startLong();
            passTime(400ms);
            killOne();
            reap();
        }
        if (random_() % 3 == 0) {
            EXPECT_TRUE(collector_->control("dump").starts_with("0 "));
        }
        if (random_() % 5 == 0)
            hangAThread();
        if (soakTime() >= killingFrom && random_() % 5 == 0)
            killAWorker();
        if (SteadyClock::now() < lastRestart && random_() % 8 == 0)
            restart();
        change(static_cast<Source>(random_() % 3));
        if (early.threads == 0 && SteadyClock::now() > lastRestart + std::min(settlingTime, soakTime() / 4))
            early = figuresOf(static_cast<pid_t>(collector_->program().pid()));
    }
    change(Source::events);
    const Figures late = figuresOf(static_cast<pid_t>(collector_->program().pid()));
    while (!long_.empty()) {
        kill(long_.begin()->first, SIGTERM);
        usleep(20000);
        reap();
    }
    std::this_thread::sleep_for(3s);
    EXPECT_EQ(collector_->stop(), 0);
    noteLosses();
    judge(accounting.ended(prefix_));
    std::cout << short_["t"] + short_["f"] << " short processes, " << longCount_ << " long ones, " << holds_.size()
              << " threads held, " << killed_ << " workers ended by force, " << gaps_.size() << " restarts, " << lost_
              << " events lost; threads " << early.threads << " and " << late.threads << ", descriptors "
              << early.descriptors << " and " << late.descriptors << ", resident " << early.memory << " and "
              << late.memory << " KiB\n";
    if (soakTime() >= 4 * settlingTime) {
        EXPECT_LE(late.threads, early.threads + 1);                // one more or less by the sources that are on
        EXPECT_LE(late.descriptors, early.descriptors + mostLong); // one for each process that it follows
        EXPECT_LE(late.memory, early.memory * memoryGrowth + arenas);
    }
}

} // namespace Velmor
