// The collector on real processes, with kernel events as its source and the system's own process accounting as the
// judge. VELMOR_STARTS says how many processes a run starts. Needs root; without it there is nothing to see here.

#include "ProcessAccounting.h"

#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
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

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 400; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(50ms);
    }
    return false;
}

struct Record {
    int32_t start = 0;
    int32_t duration = 0;
    std::string executable;
    std::string account;
    std::string exitCode;
};

std::vector<Record> readRecords(const std::string& directory, const std::string& prefix) {
    std::vector<Record> records;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream file(entry.path());
        std::string identity;
        std::string measure;
        while (std::getline(file, identity) && std::getline(file, measure)) {
            std::vector<std::string> fields;
            for (size_t begin = 0;;) {
                const size_t end = identity.find(":0:", begin);
                fields.push_back(identity.substr(begin, end - begin));
                if (end == std::string::npos)
                    break;
                begin = end + 3;
            }
            if (fields.size() == 11 && fields[5].starts_with(prefix))
                records.push_back({std::stoi(fields[0].substr(2)), std::stoi(measure.substr(2)), fields[5],
                                   fields[9].substr(fields[9].rfind('\\') + 1), fields[10]});
        }
    }
    return records;
}

/// A program that enters and leaves with code 7.
void writeTinyProgram(const std::string& path) {
#if defined(__x86_64__)
    constexpr std::array<unsigned char, 132> image{
        0x7f, 'E',  'L',  'F', 2,    1,    1,    0, 0,    0, 0,    0,    0, 0, 0, 0, // identity
        2,    0,    0x3e, 0,   1,    0,    0,    0, 0x78, 0, 0x40, 0,    0, 0, 0, 0, // entry 0x400078
        0x40, 0,    0,    0,   0,    0,    0,    0, 0,    0, 0,    0,    0, 0, 0, 0, // segments at 0x40
        0,    0,    0,    0,   0x40, 0,    0x38, 0, 1,    0, 0,    0,    0, 0, 0, 0, //
        1,    0,    0,    0,   5,    0,    0,    0, 0,    0, 0,    0,    0, 0, 0, 0, // to be loaded, read and executed
        0,    0,    0x40, 0,   0,    0,    0,    0, 0,    0, 0x40, 0,    0, 0, 0, 0, //
        0x84, 0,    0,    0,   0,    0,    0,    0, 0x84, 0, 0,    0,    0, 0, 0, 0, //
        0,    0x10, 0,    0,   0,    0,    0,    0,                                  //
        0xb8, 0x3c, 0,    0,   0,    0xbf, 7,    0, 0,    0, 0x0f, 0x05,             // exit(7)
    };
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(image.data()), image.size());
#else
    std::filesystem::copy_file("/bin/true", path);
#endif
    chmod(path.c_str(), 0755);
}

/// Programs whose names nobody else on the machine uses, and the real collector that looks at them.
class Events : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "process events and accounting need root";
        prefix_ = "v" + std::to_string(getpid());
        chmod(directory_.path().c_str(), 0755);
        for (const char* name : {"etc", "data", "log", "temp", "run", "state", "bin"})
            std::filesystem::create_directory(directory_ / name);
        chmod((directory_ / "bin").c_str(), 0755);
        std::filesystem::copy_file("/bin/true", program("t"));
        std::filesystem::copy_file("/bin/sleep", program("s"));
        std::filesystem::copy_file(VELMOR_BRANCHER, program("h"));
        writeTinyProgram(program("y"));
    }

    void TearDown() override {
        if (collector_ > 0)
            stopCollector();
    }

    std::string program(const std::string& name) const { return directory_ / ("bin/" + prefix_ + name); }

    void configure(bool polling) {
        const std::string root = directory_.path();
        std::ofstream(directory_ / "etc/include-exclude") << "include datatype=*\n";
        std::ofstream(directory_ / "resources.toml") << "ConfigurationDir = \"" << root << "/etc\"\nInstallDir = \""
                                                     << root << "\"\nStartupLogDir = \"" << root << "/log\"\n";
        std::ofstream(directory_ / "etc/runtally.conf")
            << "Velmor () = \"\" { directories () = \"\" {\n  conf (DirName) = \"" << root
            << "/etc\" { }\n  log (DirName) = \"" << root << "/log\" { }\n  temp (DirName) = \"" << root
            << "/temp\" { }\n} }\nlog () = \"\" { global () = \"\" { debug-level (Integer) = \"1\" { } } }\n"
            << "runtally () = \"\" {\n  interval (TimeSpan) = \"P12H\" { }\n  working-dir (DirName) = \"" << root
            << "/data\" { }\n  include-exclude (FileName) = \"" << root
            << "/etc/include-exclude\" { }\n  logging () = \"\" { process-data () = \"\" {\n    polling (Bool) = "
            << (polling ? "true" : "false") << " { interval (TimeSpan) = \"P1S\" { } }\n"
            << "    events (Bool) = true { native (Bool) = true { } }\n  } }\n}\n";
    }

    void startCollector(
        bool polling = false, const std::function<void()>& prepare = [] {}) {
        configure(polling);
        collector_ = fork();
        if (collector_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            setenv("VELMOR_RESOURCES", (directory_ / "resources.toml").c_str(), 1);
            setenv("VELMOR_STATE_DIR", (directory_ / "state").c_str(), 1);
            setenv("VELMOR_RUNTIME_DIR", (directory_ / "run").c_str(), 1);
            prepare();
            execl(VELMOR_RUNTALLY, VELMOR_RUNTALLY, "-c", (directory_ / "etc/runtally.conf").c_str(), nullptr);
            _exit(127);
        }
    }

    bool awaitTracer() {
        return eventually([&] { return log().find("Native event tracer is now running.") != std::string::npos; });
    }

    void stopCollector() {
        kill(collector_, SIGTERM);
        waitpid(collector_, nullptr, 0);
        collector_ = 0;
    }

    std::string log() const {
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(directory_ / "log"))
            text += readFile(entry.path().string());
        return text;
    }

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

    std::vector<Record> records() const { return readRecords(directory_ / "data", prefix_); }

    /// Waits until the collector has written what has ended so far: events are taken in order, and this one comes last.
    bool catchUp() {
        const std::string marker = directory_ / "bin/marker";
        if (!std::filesystem::exists(marker))
            writeTinyProgram(marker);
        const size_t before = readRecords(directory_ / "data", "marker").size();
        spawn({marker});
        return eventually([&] { return readRecords(directory_ / "data", "marker").size() > before; });
    }

    TempDirectory directory_;
    std::string prefix_;
    pid_t collector_ = 0;
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
        ASSERT_EQ(own.size(), times.size()) << name;
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
    stopCollector();
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

TEST_F(Events, AfterALossTheRegistryIsRightAgainAndTheLossIsCounted) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    const pid_t running = spawn({program("s"), "300"}, 0, false);
    const pid_t ending = spawn({program("s"), "300"}, 0, false);
    std::this_thread::sleep_for(200ms);
    constexpr int flood = 20000; // more than the buffers hold
    kill(collector_, SIGSTOP);
    for (int i = 0; i < flood; ++i)
        spawn({program("y")});
    kill(ending, SIGKILL);
    waitpid(ending, nullptr, 0);
    const pid_t missed = spawn({program("s"), "300"}, 0, false);
    kill(collector_, SIGCONT);
    // A next message from each processor tells how many were lost before it.
    for (int i = 0; i < 50; ++i)
        std::thread([&] { spawn({program("y")}); }).join();
    std::this_thread::sleep_for(2s);
    stopCollector();
    const auto seen = byKind(records());
    const auto countOf = [&](const char* name, const char* code) {
        const auto found = seen.find({prefix_ + name, "root", code});
        return found == seen.end() ? 0 : static_cast<int>(found->second.size());
    };
    EXPECT_EQ(countOf("s", "none"), 2) << "the one that runs and the one that was missed";
    EXPECT_EQ(countOf("s", "0") + countOf("s", "137"), 1) << "the one that ended";
    EXPECT_EQ(countOf("y", "none"), 0) << "nothing stays for ever";
    const std::string text = log();
    const size_t place = text.find("WARNING");
    ASSERT_NE(place, std::string::npos);
    EXPECT_NE(text.find("2.08.41"), std::string::npos) << text.substr(place, 200);
    std::cout << "    " << countOf("y", "7") << " of " << flood + 50 << " short processes seen; "
              << text.substr(text.find("2.08.41"), 100) << '\n';
    for (const pid_t child : {running, missed}) {
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
    stopCollector();
    const auto seen = byKind(records());
    const auto countOf = [&](const char* name, const char* code) {
        const auto found = seen.find({prefix_ + name, "root", code});
        return found == seen.end() ? 0 : static_cast<int>(found->second.size());
    };
    EXPECT_EQ(countOf("t", "0"), count);
    EXPECT_LE(countOf("y", "7"), count); // those of before the collector aren't its business
    EXPECT_LE(countOf("s", "143"), count);
    EXPECT_GE(countOf("s", "143"), count - count / 4);
    EXPECT_EQ(countOf("s", "none") + countOf("y", "none") + countOf("t", "none"), 0) << "entered for good";
}

TEST_F(Events, WithoutTheRightTheStartFailsAndNamesIt) {
    startCollector(false, [] {
        for (int capability = 0; capability < 64; ++capability)
            prctl(PR_CAPBSET_DROP, capability);
        setresgid(nobody, nobody, nobody);
    });
    // Root without capabilities still owns its files.
    int status = 0;
    waitpid(collector_, &status, 0);
    collector_ = 0;
    EXPECT_TRUE(WIFEXITED(status));
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
    stopCollector();
    std::vector<Record> shells;
    std::vector<Record> editors;
    for (const Record& record : records())
        (record.executable == prefix_ + "sh" ? shells : editors).push_back(record);
    ASSERT_EQ(shells.size(), 1U);
    ASSERT_EQ(editors.size(), 2U);
    const Record& editor = editors[0].start > editors[1].start ? editors[0] : editors[1];
    EXPECT_EQ(shells[0].start + shells[0].duration, editor.start);
}

TEST_F(Events, UnderLoadTheEndIsQuickAndOrderly) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    const pid_t spawner = fork();
    if (spawner == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;)
            spawn({program("y")});
    }
    EXPECT_TRUE(eventually([&] { return records().size() > 100; }));
    stopCollector();
    kill(spawner, SIGKILL);
    waitpid(spawner, nullptr, 0);
    const std::string text = log();
    EXPECT_NE(text.find("Runtally ended."), std::string::npos);
    EXPECT_EQ(text.find("WARNING"), std::string::npos) << text.substr(text.find("WARNING"), 300);
    EXPECT_EQ(text.find("FAILED"), std::string::npos);
}

} // namespace Velmor
