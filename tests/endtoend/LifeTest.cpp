// The real collector from its start to its end, on real processes, as an administrator runs it.

#include "RunningCollector.h"

#include "shared/library/common/text/TextUtils.h"
#include "support/Environment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <fstream>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
/// A shell under a name that no other process bears.
std::string ownShell(const RunningCollector& collector, const std::string& name) {
    std::string path = collector.directory() / name;
    std::filesystem::copy_file("/bin/sh", path);
    return path;
}

std::vector<RecordLines> recordsWith(const std::string& field, const std::string& text) {
    std::vector<RecordLines> records = parseLines(text);
    std::erase_if(records, [&](const RecordLines& record) { return !record.has(field); });
    return records;
}

/// Bytes that a process has read and written.
double bytesOf(uint32_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/io");
    std::string word;
    double read = 0;
    double written = 0;
    file >> word >> read >> word >> written;
    return read + written;
}

double cpuSecondsOf(uint32_t pid) {
    clockid_t clock{};
    timespec used{};
    clock_getcpuclockid(static_cast<pid_t>(pid), &clock);
    clock_gettime(clock, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}
} // namespace

TEST(LifeEndToEnd, AProcessLeavesTouchingSlicesAndItsCodeAndCommandsAreObeyed) {
    RunningCollector collector("", RunningCollector::polling, {RunningCollector::everything});
    Child process({ownShell(collector, "longlived"), "-c", "read x; exit 7"});
    Child other({ownShell(collector, "stillruns"), "-c", "read x"});
    for (const Child* started : {&process, &other})
        ASSERT_TRUE(collector.awaitLog("Added process " + std::to_string(started->pid())));
    EXPECT_TRUE(collector.control("info").starts_with("0 process " + std::to_string(collector.program().pid()) +
                                                      ", main thread "));
    EXPECT_EQ(collector.control("dump"), "0 done\n");
    EXPECT_EQ(collector.usage("longlived").size(), 1U) << "the reply comes after the delivery";
    collector.writeConfiguration("    interval (TimeSpan) = P5H { }\n", RunningCollector::polling);
    EXPECT_TRUE(collector.control("reconfigure").starts_with("0 In force since "));
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
    RunningCollector collector("", RunningCollector::polling, {RunningCollector::everything});
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

TEST(ModulesEndToEnd, ALibraryThatIsUnloadedAndOneThatStaysHaveOneRecordEach) {
    RunningCollector collector("",
                               std::string(RunningCollector::polling) +
                                   "        module-data (Bool) = true { interval (TimeSpan) = P1S { } }\n",
                               {RunningCollector::everything});
    Child loader({VELMOR_LOADER, VELMOR_MODULE});
    ASSERT_TRUE(collector.awaitLog("Added process " + std::to_string(loader.pid())));
    ASSERT_TRUE(loader.order('l'));
    const time_t loaded = time(nullptr);
    ASSERT_TRUE(collector.awaitLog("There were 1 new module(s), and 0 had ended."));
    sleep(3);
    ASSERT_TRUE(loader.order('u'));
    ASSERT_TRUE(collector.awaitLog("\"libendtoend_module.so\" matches a filter"));
    const time_t missed = time(nullptr);
    loader.closeInput();
    ASSERT_EQ(loader.reap(), 0);
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(loader.pid())));
    EXPECT_EQ(collector.stop(), 0);

    const auto all = recordsWith("endtoend_loader", collector.text("ModuleLog"));
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](auto& record) { return record.has("libc.so.6"); }), 1);
    const auto ours = recordsWith("libendtoend_module.so", collector.text("ModuleLog"));
    ASSERT_EQ(ours.size(), 1U);
    EXPECT_GE(ours[0].start(), loaded);
    EXPECT_GE(ours[0].measure(1), 1);
    EXPECT_LE(ours[0].start() + ours[0].measure(1), static_cast<double>(missed));
}

TEST(PerformanceEndToEnd, ARecordHasTheFiguresThatTheKernelHasByItsOrderOfMagnitude) {
    const std::string name = "copier" + std::to_string(getpid()); // nobody else's
    RunningCollector collector(
        "    interval (TimeSpan) = P12H { performance-monitor (TimeSpan) = P12H { } }\n",
        std::string(RunningCollector::polling) +
            "        performance-monitor (Bool) = true { interval (TimeSpan) = P1S { } "
            "counters (FileName) = \"%counters\" { } rules (FileName) = \"%rules\" { } }\n",
        {RunningCollector::everything,
         {"counters", "Elapsed Time|abs\n% Processor Time|avg\nPrivate Bytes|avg\nIO Data Bytes/sec|avg\n"},
         {"rules", "+ host=*\n" + name + "\n"}});
    const std::string program = collector.directory() / name;
    std::filesystem::copy_file("/bin/dd", program);
    Child copier({program, "if=/dev/zero", "of=/dev/null", "bs=8M"});
    ASSERT_TRUE(collector.awaitLog("   Added counter 6 for PID=" + std::to_string(copier.pid())));
    for (int round = 0; round < 3; ++round)
        ASSERT_TRUE(collector.awaitLog("**RELAX PerformanceMonitor"));
    copier.signal(SIGSTOP);
    while (copier.state() != 'T')
        usleep(1000);
    const double cpu = cpuSecondsOf(copier.pid());
    const double bytes = bytesOf(copier.pid());
    copier.signal(SIGKILL);
    copier.reap();
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(copier.pid())));
    EXPECT_EQ(collector.stop(), 0);

    const auto found = recordsWith(name, collector.text("PerfMonLog"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].has("137")) << "the exit code of its end";
    // Averages of a machine that may do much else, by times to the second: a bound for mistakes of units alone.
    const double seconds = found[0].measure(2);
    const double memory = found[0].measure(8) / seconds;
    for (const auto& [told, judged] :
         {std::pair{found[0].measure(1), cpu}, {found[0].measure(3) * seconds, bytes}, {memory, double{8 << 20}}}) {
        EXPECT_GT(told, 0);
        EXPECT_LT(told, 10 * judged);
    }
    EXPECT_GT(memory, 8 << 20) << "its buffer";
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
    RunningCollector collector("", RunningCollector::polling, {{"include-exclude", "include exe=*/own*\n"}});
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
