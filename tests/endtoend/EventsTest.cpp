// The collector on real processes, with kernel events as its source and the system's own process accounting as the
// judge. VELMOR_STARTS says how many processes a run starts, VELMOR_STOPS how often it is held up. Needs root; without
// it there is nothing to see here.

#include "ProcessAccounting.h"
#include "RunningCollector.h"

#include "support/Eventually.h"
#include "support/TinyProgram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
using namespace std::chrono_literals;

constexpr uint32_t nobody = 65534;

int starts() {
    const char* text = std::getenv("VELMOR_STARTS");
    return text ? std::atoi(text) : 2000;
}

/// How often the collector is held up while processes start.
int stops() {
    const char* text = std::getenv("VELMOR_STOPS");
    return text ? std::atoi(text) : 1;
}

struct Record {
    int32_t start = 0;
    int32_t duration = 0;
    std::string executable;
    std::string account;
    std::string exitCode;
};

std::vector<Record> readRecords(const RunningCollector& collector, const std::string& prefix) {
    std::vector<Record> records;
    const std::vector<std::string> lines = collector.lines("ProcessLog");
    for (size_t line = 0; line + 1 < lines.size(); line += 2) {
        std::vector<std::string> fields;
        for (size_t begin = 0, end = 0; end != std::string::npos; begin = end + 3) {
            end = lines[line].find(":0:", begin);
            fields.push_back(lines[line].substr(begin, end - begin));
        }
        if (fields.size() == 11 && fields[5].starts_with(prefix))
            records.push_back({std::stoi(fields[0].substr(2)), std::stoi(lines[line + 1].substr(2)), fields[5],
                               fields[9].substr(fields[9].rfind('\\') + 1), fields[10]});
    }
    return records;
}

std::string logging(bool polling) {
    return "        process-data () = \"\" {\n            polling (Bool) = " + std::string(polling ? "true" : "false") +
           " { interval (TimeSpan) = P1S { } }\n"
           "            events (Bool) = true { native (Bool) = true { } }\n        }\n";
}

/// Programs whose names nobody else on the machine uses, and the real collector that looks at them.
class Events : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "process events and accounting need root";
        prefix_ = "v" + std::to_string(getpid());
        chmod(directory_.path().c_str(), 0755);
        std::filesystem::copy_file("/bin/true", program("t"));
        std::filesystem::copy_file("/bin/sleep", program("s"));
        std::filesystem::copy_file(VELMOR_BRANCHER, program("h"));
        writeTinyProgram(program("y"));
    }

    std::string program(const std::string& name) const { return directory_ / (prefix_ + name); }

    void startCollector(bool polling = false) {
        collector_ = std::make_unique<RunningCollector>(
            "    interval (TimeSpan) = P12H { }\n", logging(polling),
            std::vector<RunningCollector::File>{{"include-exclude", "include datatype=*\n"}}, 1);
    }
    bool awaitTracer() { return collector_->awaitLog("Native event tracer is now running."); }

    std::string log() const { return readFile(collector_->directory() / "RuntallyDebug.log"); }

    /// Starts a program by vfork, and waits for it unless it is to run on.
    pid_t spawn(const std::vector<std::string>& words, uint32_t user = 0, bool wait = true) {
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        const pid_t child = vfork();
        if (child == 0) {
            if (user != 0)
                syscall(SYS_setresuid, user, user, user); // of this thread alone, which vfork stands on
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        if (wait)
            waitpid(child, nullptr, 0);
        return child;
    }

    std::vector<Record> records() const { return readRecords(*collector_, prefix_); }

    /// Records of root's runs of a program that ended with that code.
    int countOf(const std::string& name, const std::string& code) const {
        const std::vector<Record> all = records();
        return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const Record& record) {
            return record.executable == prefix_ + name && record.account == "root" && record.exitCode == code;
        }));
    }

    /// What the registry holds, by the slices that reach to a dump of this second.
    std::vector<std::string> tracked() {
        const auto now = static_cast<int32_t>(std::time(nullptr));
        EXPECT_EQ(collector_->control("dump").front(), '0');
        std::vector<std::string> names;
        for (const Record& record : records())
            if (record.exitCode == "none" && record.start + record.duration >= now)
                names.push_back(record.executable);
        return names;
    }

    /// Waits until the collector has written what has ended so far: events are taken in order, and these come last.
    bool catchUp() {
        const std::string marker = "marker" + std::to_string(++markers_) + "x"; // one of before tells nothing
        writeTinyProgram(directory_ / marker);
        const auto isWritten = [&] {
            spawn({directory_ / marker}); // one may be lost among many
            return !readRecords(*collector_, marker).empty();
        };
        return eventually(isWritten, 50ms);
    }

    TempDirectory directory_;
    std::string prefix_;
    int markers_ = 0;
    std::unique_ptr<RunningCollector> collector_;
};

/// Keeps every processor busy while it lives.
class BusyLoops {
public:
    BusyLoops() {
        for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) {
            loops_.push_back(fork());
            if (loops_.back() == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                for (std::atomic<unsigned> n = 0;;)
                    ++n;
            }
        }
    }
    BusyLoops(const BusyLoops&) = delete;
    BusyLoops& operator=(const BusyLoops&) = delete;
    ~BusyLoops() {
        for (const pid_t loop : loops_) {
            kill(loop, SIGKILL);
            waitpid(loop, nullptr, 0);
        }
    }

private:
    std::vector<pid_t> loops_;
};

/// What identifies a kind of process, as both sides tell it.
using Kind = std::tuple<std::string, std::string, std::string>; // executable, account, exit code

std::map<Kind, std::vector<std::pair<double, double>>> byKind(const std::vector<AccountedProcess>& processes) {
    std::map<Kind, std::vector<std::pair<double, double>>> kinds;
    for (const AccountedProcess& p : processes)
        kinds[{p.command, p.user == 0 ? "root" : "nobody", std::to_string(p.exitCode)}].push_back({p.start, p.end});
    return kinds;
}

std::map<Kind, std::vector<std::pair<double, double>>> byKind(const std::vector<Record>& records) {
    std::map<Kind, std::vector<std::pair<double, double>>> kinds;
    for (const Record& r : records)
        kinds[{r.executable, r.account, r.exitCode}].push_back({r.start, r.start + r.duration});
    return kinds;
}

/// Each process has one record, of its kind and with its times to the second.
void expectSame(std::map<Kind, std::vector<std::pair<double, double>>> seen,
                std::map<Kind, std::vector<std::pair<double, double>>> judged) {
    for (auto& [kind, times] : judged) {
        const auto& [executable, account, code] = kind;
        const std::string name = executable + " of " + account + " with " + code;
        auto& own = seen[kind];
        EXPECT_EQ(own.size(), times.size()) << name;
        times.resize(own.size());
        std::sort(own.begin(), own.end());
        std::sort(times.begin(), times.end());
        size_t wrong = 0;
        for (size_t i = 0; i < own.size(); ++i)
            wrong += std::abs(own[i].first - times[i].first) > 1.1 || std::abs(own[i].second - times[i].second) > 1.1;
        EXPECT_EQ(wrong, 0U) << name;
        seen.erase(kind);
    }
    for (const auto& [kind, times] : seen)
        ADD_FAILURE() << times.size() << " records of " << std::get<0>(kind) << " of " << std::get<1>(kind) << " with "
                      << std::get<2>(kind) << " that nobody ran";
}
} // namespace

TEST_F(Events, EveryProcessOfAFloodHasOneRecord) {
    ProcessAccounting judge(directory_ / "pacct");
    if (!judge.isOn())
        GTEST_SKIP() << "this kernel has no process accounting";
    startCollector();
    ASSERT_TRUE(awaitTracer());
    const int count = starts();
    std::vector<pid_t> outliving;
    {
        const BusyLoops loops;
        for (int i = 0; i < count; ++i)
            spawn({program(i % 2 == 0 ? "t" : "y")}, i % 4 < 2 ? 0 : nobody);
        for (int i = 0; i < count / 10; ++i) {
            spawn({program("h"), "forks"});
            spawn({program("h"), i % 2 == 0 ? "executes" : "executes-by-thread", program("t")});
            const pid_t killed = spawn({program("s"), "100"}, 0, false);
            kill(killed, SIGKILL);
            waitpid(killed, nullptr, 0);
        }
        for (int i = 0; i < count / 40; ++i)
            outliving.push_back(spawn({program("s"), "300"}, 0, false));
    }
    EXPECT_TRUE(catchUp());
    collector_->stop();
    auto judged = byKind(judge.ended(prefix_));
    // A program that was replaced leaves a record of its own; the accounting knows the last one only.
    auto seen = byKind(records());
    const Kind replaced{prefix_ + "h", "root", "0"};
    EXPECT_EQ(seen[replaced].size(), static_cast<size_t>(count / 10));
    seen.erase(replaced);
    const Kind running{prefix_ + "s", "root", "none"};
    EXPECT_EQ(seen[running].size(), outliving.size());
    seen.erase(running);
    for (const pid_t child : outliving) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    expectSame(std::move(seen), std::move(judged));
}

namespace {
/// How many messages of the process connector the kernel could not keep for a program.
uint64_t droppedBy(uint32_t program) {
    constexpr uint32_t connector = 11;
    std::ifstream sockets("/proc/net/netlink");
    std::string line;
    std::getline(sockets, line);
    while (std::getline(sockets, line)) {
        std::istringstream fields(line);
        std::string socket, groups, rmem, wmem, dump, locks;
        uint32_t protocol = 0;
        uint32_t pid = 0;
        uint64_t drops = 0;
        fields >> socket >> protocol >> pid >> groups >> rmem >> wmem >> dump >> locks >> drops;
        if (protocol == connector && pid == program)
            return drops;
    }
    return 0;
}

/// What the last message about lost events says that they are in all; 0 without one.
uint64_t reportedLoss(const std::string& log) {
    constexpr std::string_view before = "(2.08.41) (Message not found.) Parameters:";
    const size_t message = log.rfind(before);
    if (message == std::string::npos)
        return 0;
    std::istringstream parameters(log.substr(message + before.size()));
    uint64_t since = 0;
    uint64_t inAll = 0;
    parameters >> since >> inAll;
    return inAll;
}
} // namespace

TEST_F(Events, AfterALossTheRegistryIsRightAgainAndTheLossIsCounted) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    std::vector<pid_t> running{spawn({program("s"), "300"}, 0, false)};
    for (int i = 0; i < stops(); ++i) {
        const pid_t ending = spawn({program("s"), "300"}, 0, false);
        ASSERT_TRUE(catchUp());
        collector_->program().signal(SIGSTOP);
        for (int j = 0; j < 20000; ++j) // more than the buffers hold
            spawn({program("y")});
        kill(ending, SIGKILL);
        waitpid(ending, nullptr, 0);
        running.push_back(spawn({program("s"), "300"}, 0, false));
        collector_->program().signal(SIGCONT);
        EXPECT_TRUE(eventually([&] { return tracked() == std::vector(running.size(), prefix_ + "s"); }, 1100ms));
    }
    EXPECT_TRUE(catchUp());
    const uint64_t judged = droppedBy(collector_->program().pid());
    collector_->stop();
    EXPECT_GT(judged, 0U);
    // To the event; but where the kernel lacks memory for a message it counts that nowhere, and the gap shows all the
    // same.
    EXPECT_GE(reportedLoss(log()), judged);
    EXPECT_LE(reportedLoss(log()), judged + 2);
    EXPECT_EQ(countOf("s", "0"), stops()) << "each that ended unseen, once";
    for (const pid_t child : running) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST_F(Events, TogetherWithPollingEachProcessIsWrittenOnce) {
    std::vector<pid_t> early;
    const int count = std::min(starts() / 10, 2000);
    for (int i = 0; i < count; ++i)
        early.push_back(spawn({program("s"), "300"}, 0, false));
    startCollector(true);
    for (int i = 0; i < count; ++i) { // while the first look at the table goes on
        spawn({program("y")});
        if (i % 4 == 0) {
            kill(early[static_cast<size_t>(i)], SIGTERM);
            waitpid(early[static_cast<size_t>(i)], nullptr, 0);
        }
    }
    ASSERT_TRUE(awaitTracer());
    for (int i = 0; i < count; ++i)
        spawn({program("t")});
    for (const pid_t child : early) {
        kill(child, SIGTERM);
        waitpid(child, nullptr, 0);
    }
    EXPECT_TRUE(catchUp());
    collector_->stop();
    EXPECT_EQ(countOf("t", "0"), count);
    EXPECT_LE(countOf("y", "7"), count); // those of before the collector aren't its business
    EXPECT_LE(countOf("s", "143"), count);
    EXPECT_GE(countOf("s", "143"), count - count / 4);
    EXPECT_EQ(countOf("s", "none") + countOf("y", "none") + countOf("t", "none"), 0) << "entered for good";
}

TEST_F(Events, WithoutTheRightTheStartFailsAndNamesIt) {
    startCollector();
    collector_->stop();
    std::filesystem::remove(collector_->directory() / "RuntallyDebug.log");
    // Root without capabilities still owns its files.
    collector_->run("", "setpriv --bounding-set=-all --regid=65534 --clear-groups " VELMOR_RUNTALLY " -c " +
                            (collector_->directory() / "runtally.conf"));
    const std::string text = log();
    for (const char* part : {"CAP_PERFMON", "CAP_NET_ADMIN", "FATAL"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
}

TEST_F(Events, AShellThatExecutesAnEditorTouchesIt) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    std::filesystem::copy_file("/bin/sh", program("sh"));
    spawn({program("sh"), "-c", program("s") + " 1.2; exec " + program("s") + " 1.2"});
    EXPECT_TRUE(catchUp());
    collector_->stop();
    std::vector<Record> shells;
    std::vector<Record> editors;
    for (const Record& record : records())
        (record.executable == prefix_ + "sh" ? shells : editors).push_back(record);
    ASSERT_EQ(shells.size(), 1U);
    ASSERT_EQ(editors.size(), 2U);
    const Record& editor = editors[0].start > editors[1].start ? editors[0] : editors[1];
    EXPECT_EQ(shells[0].start + shells[0].duration, editor.start);
}

TEST_F(Events, UnderLoadWhatHasHappenedBeforeTheEndIsWritten) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    Child spawner([this] {
        for (int i = 0;; ++i) {
            spawn({program("y")}, 0, false);
            while (i % 20 == 0 && waitpid(-1, nullptr, 0) > 0) // until then nobody asks for their codes
                ;
        }
        return 0;
    });
    constexpr int count = 2000;
    for (int i = 0; i < count; ++i)
        spawn({program("t")});
    collector_->stop();
    EXPECT_EQ(countOf("t", "0"), count);
    EXPECT_GT(countOf("y", "7"), 0);
    EXPECT_EQ(countOf("y", "0"), 0) << "a code was invented";
    const std::string text = log();
    EXPECT_NE(text.find("END THREAD EventTracer"), std::string::npos);
    EXPECT_NE(text.find("Runtally ended."), std::string::npos);
    EXPECT_EQ(reportedLoss(text), 0U);
    EXPECT_EQ(text.find("CRITICAL"), std::string::npos);
    EXPECT_EQ(text.find("FAILED"), std::string::npos);
}

} // namespace Velmor
