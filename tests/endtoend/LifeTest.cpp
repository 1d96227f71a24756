// The real collector from its start to its end, on real processes, as an administrator runs it.

#include "RunningCollector.h"

#include "shared/library/common/text/TextUtils.h"
#include "support/Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
const RunningCollector::File everything{"include-exclude", "include datatype=*\n"};

std::string polling(int seconds) {
    return "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P" +
           std::to_string(seconds) + "S { } } }\n";
}

struct Slice {
    long start = 0;
    long duration = 0;
    bool isFirst = false;
    std::string exitCode;
};

/// The slices of the one process with this executable.
std::vector<Slice> slicesOf(const RunningCollector& collector, const std::string& executable) {
    std::vector<Slice> slices;
    const std::vector<std::string> lines = collector.lines("ProcessLog");
    for (size_t i = 0; i + 1 < lines.size(); i += 2) {
        if (lines[i].find(":0:" + executable + ":0:") == std::string::npos)
            continue;
        slices.push_back({std::stol(lines[i].substr(2)), std::stol(lines[i + 1].substr(2)), lines[i + 1][0] == '1',
                          lines[i].substr(lines[i].rfind(':') + 1)});
    }
    return slices;
}

void expectTouching(const std::vector<Slice>& slices) {
    for (size_t i = 0; i < slices.size(); ++i) {
        EXPECT_EQ(slices[i].isFirst, i == 0);
        if (i > 0) {
            EXPECT_EQ(slices[i].start, slices[i - 1].start + slices[i - 1].duration);
        }
    }
}

/// A shell under a name that no other process bears.
std::string ownShell(const RunningCollector& collector, const std::string& name) {
    std::string path = collector.directory() / name;
    std::filesystem::copy_file("/bin/sh", path);
    return path;
}

} // namespace

TEST(LifeEndToEnd, ALongProcessLeavesTouchingSlicesAndItsCodeAndATerminationDeliversAll) {
    RunningCollector collector("    interval (TimeSpan) = P10S { }\n", polling(2), {everything});
    Child process({ownShell(collector, "longlived"), "-c", "sleep 25; exit 7"});
    Child other({ownShell(collector, "stillruns"), "-c", "read x"});
    EXPECT_EQ(process.reap(), 7);
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(process.pid())));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(collector.stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(collector.nextState(), "STOPPING");
    const std::vector<Slice> last = slicesOf(collector, "stillruns");
    ASSERT_FALSE(last.empty());
    EXPECT_NEAR(static_cast<double>(last.back().start + last.back().duration), std::time(nullptr), 2);
    for (const auto& entry : std::filesystem::directory_iterator(collector.directory() / "data"))
        EXPECT_EQ(entry.path().extension(), ".data");
    const std::vector<Slice> slices = slicesOf(collector, "longlived");
    ASSERT_GE(slices.size(), 3U);
    expectTouching(slices);
    EXPECT_NEAR(static_cast<double>(slices.back().start + slices.back().duration - slices.front().start), 25, 3);
    EXPECT_EQ(slices.back().exitCode, "7");
    EXPECT_EQ(slices.front().exitCode, "none");
}

TEST(LifeEndToEnd, CommandsAreObeyedUnderLoad) {
    RunningCollector collector("", polling(1), {everything});
    EXPECT_EQ(collector.control("info").substr(0, 2), "0 ");
    Child process({ownShell(collector, "throughout"), "-c", "read x"});
    ASSERT_TRUE(collector.awaitLog("Added process " + std::to_string(process.pid())));
    std::atomic<bool> enough{false};
    std::thread load([&] {
        while (!enough)
            Child({"/bin/true"}).reap();
    });
    EXPECT_EQ(collector.control("dump"), "0 done\n");
    EXPECT_EQ(slicesOf(collector, "throughout").size(), 1U) << "the reply comes after the delivery";
    for (int i = 0; i < 3; ++i) {
        collector.writeConfiguration("    interval (TimeSpan) = P" + std::to_string(i + 1) + "H { }\n", polling(1));
        EXPECT_EQ(collector.control("reconfigure"), "0 ");
        EXPECT_EQ(collector.nextState(), "RELOADING");
        EXPECT_EQ(collector.nextState(), "READY");
        EXPECT_TRUE(collector.status().starts_with("Tracks ")) << collector.status();
        EXPECT_TRUE(collector.status().ends_with(" processes by polling; no event was lost.")) << collector.status();
        EXPECT_GT(std::atoi(collector.status().c_str() + 7), 0) << collector.status();
        ASSERT_TRUE(collector.awaitLog("Data delivery at interval: P" + std::to_string(i + 1) + "H."));
    }
    EXPECT_EQ(collector.control("dump"), "0 done\n");
    enough = true;
    load.join();
    EXPECT_EQ(collector.control("die"), "0 ");
    EXPECT_EQ(collector.program().reap(), 0);
    const std::vector<Slice> slices = slicesOf(collector, "throughout");
    EXPECT_EQ(slices.size(), 3U);
    expectTouching(slices);
    EXPECT_EQ(collector.control("info").substr(0, 2), "3 ") << "nobody listens";
}

TEST(LifeEndToEnd, PrimeTimeIdValuesAndTheEventLogShowForARealProcess) {
    RunningCollector collector(
        "",
        "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P1S { } }\n"
        "            log-to-file (Bool) = true { } }\n",
        {{"include-exclude", "include project=p1\n"}, {"primetime", "*:*:*:*:* exclude\n"}});
    EXPECT_EQ(collector.stop(), 0); // what it is to find has to be there before it looks
    const std::string user = collector.user();
    collector.directory().write("Log/temp/user_id-" + user + ".idval", "left by a test\nid=u7\n");
    Child process({ownShell(collector, "valued"), "-c", "sleep 3"});
    const std::string own = user + "-" + std::to_string(process.pid()) + "-valued.idval";
    collector.directory().write("Log/temp/project_id-" + own, "\nproject=p1\n");
    Child other({ownShell(collector, "plain"), "-c", "sleep 3"});
    ASSERT_TRUE(collector.start());
    EXPECT_EQ(process.reap() + other.reap(), 0);
    for (const Child* gone : {&process, &other})
        ASSERT_TRUE(collector.awaitLog("Logged end event for process " + std::to_string(gone->pid())));
    EXPECT_EQ(collector.stop(), 0);
    const std::vector<std::string> lines = collector.lines("ProcessLog");
    ASSERT_EQ(lines.size(), 2U) << "the rule knows the project of one process only";
    EXPECT_NE(lines[0].find(":0:non-prime:0:"), std::string::npos);
    EXPECT_TRUE(lines[0].ends_with("\\" + user + "|user id=u7|project id=p1:0:0")) << lines[0];
    std::string diary;
    for (const auto& entry : std::filesystem::directory_iterator(collector.directory().path()))
        if (entry.path().extension() == ".eventlog")
            diary += readFile(entry.path().string());
    EXPECT_NE(diary.find("|" + std::to_string(process.pid()) + "|" + toLowerCopy(collector.directory() / "valued") +
                         "|valued|" + user + "|user id=u7|project id=p1|end\n"),
              std::string::npos)
        << diary;
}

TEST(LifeEndToEnd, AStartThatFailsSaysWhyInOneLine) {
    RunningCollector collector("", polling(1), {everything});
    const std::string elsewhere = "VELMOR_RUNTIME_DIR=" + collector.directory() / "other";
    const std::string& home = collector.directory().path();
    collector.directory().write("wrong.conf", "a (String) = b { }\nc (String) d { }\n");
    struct Case {
        std::string environment;
        const char* file;
        const char* cause;
    };
    for (const auto& [environment, file, cause] : {
             Case{"", "runtally.conf", "Another Runtally runs on this machine already"},
             Case{elsewhere + " VELMOR_RESOURCES=/nowhere", "runtally.conf", "/nowhere"},
             Case{elsewhere, "wrong.conf", "line 2"},
         }) {
        const std::string said =
            collector.run(environment, VELMOR_RUNTALLY + (" -c " + home) + file + " 2>&1 >/dev/null");
        EXPECT_NE(said.find(cause), std::string::npos) << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
        EXPECT_TRUE(said.starts_with("255 ")) << said;
    }
    EXPECT_EQ(collector.stop(), 0);
}

namespace {
using Record = std::pair<std::string, std::string>; // its two lines

/// The whole records of a file. What is torn must be the last, and no record by its form.
std::vector<Record> recordsIn(const std::filesystem::path& path) {
    std::vector<Record> records;
    std::istringstream text(readFile(path.string()));
    for (Record record; std::getline(text, record.first);) {
        const bool isWhole = std::getline(text, record.second) && !text.eof();
        if (isWhole) {
            EXPECT_EQ(record.first.substr(0, 2), "1:") << path;
            EXPECT_NE(record.first.find(":31:0:"), std::string::npos) << path;
            EXPECT_TRUE(record.second[1] == ':') << path;
            records.push_back(record);
        } else {
            EXPECT_TRUE(text.eof()) << path;
        }
    }
    return records;
}

std::multiset<Record> recordsOf(const RunningCollector& collector, const char* ending) {
    std::multiset<Record> records;
    for (const auto& entry : std::filesystem::directory_iterator(collector.directory() / "data")) {
        const std::string name = entry.path().filename().string();
        if (name.ends_with(ending) && !name.ends_with(".lock"))
            for (const Record& record : recordsIn(entry.path()))
                records.insert(record);
    }
    return records;
}

/// One collector that is killed again and again while processes come and go.
void killOften(int kills, unsigned seed) {
    RunningCollector collector("", polling(1), {{"include-exclude", "include exe=*/own*\n"}});
    std::minstd_rand random(seed);
    std::set<Record> flushed;
    std::atomic<bool> enough{false};
    std::thread load([&] {
        for (int number = 0; !enough; ++number) {
            // No shell, whose fork is a second process of that name until it executes.
            const std::string own = collector.directory() / ("own" + std::to_string(number));
            std::filesystem::copy_file("/bin/sleep", own);
            Child({own, "0.3"}).reap();
        }
    });
    for (int i = 0; i < kills && !testing::Test::HasFailure(); ++i) {
        usleep(static_cast<useconds_t>(random() % 1500000));
        if (random() % 2 == 0) // so that some kills fall into a delivery
            collector.program().signal(SIGHUP);
        usleep(static_cast<useconds_t>(random() % 20000));
        for (const Record& record : recordsOf(collector, ""))
            flushed.insert(record);
        collector.program().signal(SIGKILL);
        collector.program().reap();
        ASSERT_TRUE(collector.start()) << "seed " << seed << ", kill " << i;
    }
    enough = true;
    load.join();
    EXPECT_EQ(collector.stop(), 0);
    const std::multiset<Record> delivered = recordsOf(collector, ".data");
    for (const Record& record : flushed)
        EXPECT_TRUE(delivered.contains(record)) << record.first << "\n" << record.second << "\nseed " << seed;
    for (const Record& record : delivered)
        EXPECT_EQ(delivered.count(record), 1U) << record.first << "\n" << record.second;
}
} // namespace

TEST(CrashEndToEnd, NoFlushedRecordIsLostWhereverItIsKilled) {
    constexpr int collectors = 8;
    const int kills = fromEnvironment("VELMOR_KILLS", 200);
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= collectors; ++seed)
        threads.emplace_back(killOften, kills / collectors, seed);
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace Velmor
