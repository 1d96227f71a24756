// The real collector from its start to its end, on real processes, as an administrator runs it.

#include "RunningCollector.h"

#include "shared/library/common/text/TextUtils.h"
#include "support/Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
const RunningCollector::File everything{"include-exclude", "include datatype=*\n"};

std::string polling(int seconds) {
    return "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P" +
           std::to_string(seconds) + "S { } } }\n";
}

/// A shell under a name that no other process bears.
std::string ownShell(const RunningCollector& collector, const std::string& name) {
    std::string path = collector.directory() / name;
    std::filesystem::copy_file("/bin/sh", path);
    return path;
}

} // namespace

TEST(LifeEndToEnd, AProcessLeavesTouchingSlicesAndItsCodeAndCommandsAreObeyed) {
    RunningCollector collector("", polling(1), {everything});
    Child process({ownShell(collector, "longlived"), "-c", "read x; exit 7"});
    Child other({ownShell(collector, "stillruns"), "-c", "read x"});
    for (const Child* started : {&process, &other})
        ASSERT_TRUE(collector.awaitLog("Added process " + std::to_string(started->pid())));
    EXPECT_TRUE(collector.control("info").starts_with("0 " + std::to_string(collector.program().pid()) + ","));
    EXPECT_EQ(collector.control("dump"), "0 done\n");
    EXPECT_EQ(collector.usage("longlived").size(), 1U) << "the reply comes after the delivery";
    collector.writeConfiguration("    interval (TimeSpan) = P5H { }\n", polling(1));
    EXPECT_EQ(collector.control("reconfigure"), "0 ");
    EXPECT_EQ(collector.nextState(), "RELOADING");
    EXPECT_EQ(collector.nextState(), "READY");
    EXPECT_TRUE(collector.status().starts_with("Tracks ")) << collector.status();
    EXPECT_TRUE(collector.status().ends_with(" processes by polling; nothing was lost.")) << collector.status();
    EXPECT_GT(std::atoi(collector.status().c_str() + 7), 0) << collector.status();
    ASSERT_TRUE(collector.awaitLog("Data delivery at interval: P5H."));
    sleep(2); // so that the next slices last
    EXPECT_EQ(collector.control("dump"), "0 done\n");
    process.closeInput();
    EXPECT_EQ(process.reap(), 7);
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(process.pid())));
    const auto end = static_cast<int32_t>(std::time(nullptr));
    EXPECT_EQ(collector.control("die"), "0 ");
    EXPECT_EQ(collector.program().reap(), 0);
    EXPECT_EQ(collector.nextState(), "STOPPING");
    for (const auto& [name, code] : {std::pair{"longlived", "7"}, {"stillruns", "none"}}) {
        const auto slices = collector.usage(name);
        ASSERT_EQ(slices.size(), 3U) << name;
        for (size_t i = 0; i < slices.size(); ++i) {
            EXPECT_EQ(slices[i].isFirst, i == 0);
            EXPECT_TRUE(i == 0 || slices[i].start == slices[i - 1].end());
            EXPECT_EQ(slices[i].exitCode, i == 2 ? code : "none");
        }
        EXPECT_GE(slices[1].duration, 1);
    }
    EXPECT_GE(collector.usage("stillruns").back().end(), end);
    for (const auto& entry : std::filesystem::directory_iterator(collector.directory() / "data"))
        EXPECT_EQ(entry.path().extension(), ".data");
    EXPECT_NE(collector.control("usage " + (collector.directory() / "data")).find("longlived"), std::string::npos);
    EXPECT_TRUE(collector.control("records --json " + (collector.directory() / "data")).starts_with("0 ["));
    EXPECT_TRUE(collector.control("info").starts_with("3 ")) << "nobody listens";
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
    const auto records = parseLines(collector.text("ProcessLog"));
    ASSERT_EQ(records.size(), 1U) << "the rule knows the project of one process only";
    EXPECT_TRUE(records[0].has("non-prime"));
    EXPECT_TRUE(records[0].fields[9].ends_with("\\" + user + "|user id=u7|project id=p1")) << records[0].fields[9];
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
    using Case = std::tuple<std::string, const char*, const char*>; // environment, file, cause
    for (const auto& [environment, file, cause] :
         {Case{"", "runtally.conf", "Another Runtally runs on this machine already"},
          Case{elsewhere + " VELMOR_RESOURCES=/nowhere", "runtally.conf", "/nowhere"},
          Case{elsewhere, "wrong.conf", "line 2"}}) {
        const std::string said =
            collector.run(environment, VELMOR_RUNTALLY + (" -c " + home) + file + " 2>&1 >/dev/null");
        EXPECT_NE(said.find(cause), std::string::npos) << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
        EXPECT_TRUE(said.starts_with("255 ")) << said;
    }
    EXPECT_EQ(collector.stop(), 0);
}

namespace {
/// The whole records of the files whose names end so.
std::multiset<UsageLine> recordsOf(const RunningCollector& collector, const char* ending) {
    std::multiset<UsageLine> records;
    for (const auto& entry : std::filesystem::directory_iterator(collector.directory() / "data")) {
        const std::string name = entry.path().filename().string();
        if (name.ends_with(ending) && !name.ends_with(".lock"))
            for (const UsageLine& record : parseRecords(readFile(entry.path().string()), true))
                records.insert(record);
    }
    return records;
}

/// One collector that is killed again and again while processes come and go.
void killOften(int kills, unsigned seed) {
    RunningCollector collector("", polling(1), {{"include-exclude", "include exe=*/own*\n"}});
    std::minstd_rand random(seed);
    std::set<UsageLine> flushed;
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
        flushed.merge(recordsOf(collector, ""));
        collector.program().signal(SIGKILL);
        collector.program().reap();
        ASSERT_TRUE(collector.start()) << "seed " << seed << ", kill " << i;
    }
    enough = true;
    load.join();
    EXPECT_EQ(collector.stop(), 0);
    const std::multiset<UsageLine> delivered = recordsOf(collector, ".data");
    for (const UsageLine& record : flushed)
        EXPECT_TRUE(delivered.contains(record)) << record.executable << " " << record.start << ", seed " << seed;
    for (const UsageLine& record : delivered)
        EXPECT_EQ(delivered.count(record), 1U) << record.executable << " " << record.start;
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
