#include "RunningCollector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <fstream>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* polling =
    "        process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P1S { } } }\n";
const RunningCollector::File everything{"include-exclude", "include datatype=*\n"};

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

TEST(ModulesEndToEnd, ALibraryThatIsUnloadedAndOneThatStaysHaveOneRecordEach) {
    RunningCollector collector(
        "", std::string(polling) + "        module-data (Bool) = true { interval (TimeSpan) = P1S { } }\n",
        {everything});
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
        std::string(polling) + "        performance-monitor (Bool) = true { interval (TimeSpan) = P1S { } "
                               "counters (FileName) = \"%counters\" { } rules (FileName) = \"%rules\" { } }\n",
        {everything,
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

} // namespace Velmor
