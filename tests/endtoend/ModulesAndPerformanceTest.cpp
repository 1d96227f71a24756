#include "RunningCollector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr uint64_t mebibyte = 1U << 20U;
constexpr const char* polling =
    R"(        process-data () = "" { polling (Bool) = true { interval (TimeSpan) = P1S { } } }
)";
const RunningCollector::File everything{"include-exclude", "include datatype=*\n"};

/// The two lines of a record.
struct Record {
    std::string identity;
    std::string measure;

    bool has(const std::string& field) const {
        return (identity + ":0:").find(":0:" + field + ":0:") != std::string::npos;
    }
    long start() const { return std::stol(identity.substr(2)); }
    /// A number of the second line, counted from 1.
    double number(int place) const {
        std::string rest = measure;
        for (; place > 0; --place)
            rest.erase(0, rest.find(':') + 1);
        return std::stod(rest);
    }
};

std::vector<Record> records(const RunningCollector& collector, const std::string& stem, const std::string& field) {
    std::vector<Record> found;
    const std::vector<std::string> lines = collector.lines(stem);
    for (size_t i = 0; i + 1 < lines.size(); i += 2)
        if (const Record record{lines[i], lines[i + 1]}; record.has(field))
            found.push_back(record);
    return found;
}

/// What the kernel says of a process, read by the test itself.
struct KernelFigures {
    explicit KernelFigures(uint32_t pid) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        clockid_t clock{};
        timespec used{};
        clock_getcpuclockid(static_cast<pid_t>(pid), &clock);
        clock_gettime(clock, &used);
        time = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
        cpu = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
        const std::string base = "/proc/" + std::to_string(pid);
        memory = 1024 * (read(base + "/status", "RssAnon:") + read(base + "/status", "VmSwap:"));
        bytes = read(base + "/io", "rchar:") + read(base + "/io", "wchar:");
    }

    static double read(const std::string& file, const std::string& word) {
        std::ifstream lines(file);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(word))
                return std::stod(line.substr(word.size()));
        return 0;
    }

    double time = 0;   // seconds
    double cpu = 0;    // seconds
    double memory = 0; // bytes, private
    double bytes = 0;  // read and written
};
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
    const auto kept = static_cast<double>(time(nullptr) - loaded);
    ASSERT_TRUE(collector.awaitLog("\"libendtoend_module.so\" matches a filter"));
    loader.closeInput();
    ASSERT_EQ(loader.reap(), 0);
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(loader.pid())));
    EXPECT_EQ(collector.stop(), 0);

    const std::vector<Record> unloaded = records(collector, "ModuleLog", "libendtoend_module.so");
    ASSERT_EQ(unloaded.size(), 1U);
    EXPECT_TRUE(unloaded[0].has("endtoend_loader"));
    EXPECT_NEAR(static_cast<double>(unloaded[0].start() - loaded), 1, 1.1); // found by looks a second apart
    EXPECT_NEAR(unloaded[0].number(1), kept, 2.1);
    const std::vector<Record> all = records(collector, "ModuleLog", "endtoend_loader");
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](auto& record) { return record.has("libc.so.6"); }), 1);
}

// Longer, and with each record by itself, with VELMOR_BURN_SECONDS; by default it takes a delivery and a half.
TEST(PerformanceEndToEnd, RecordsAgreeWithTheKernelsOwnFigures) {
    constexpr double tolerance = 0.02;
    const char* asked = std::getenv("VELMOR_BURN_SECONDS");
    const std::string name = "burner" + std::to_string(getpid()); // nobody else's
    const double seconds = asked ? std::atof(asked) : 14;
    RunningCollector collector(
        "    interval (TimeSpan) = P12H { performance-monitor (TimeSpan) = P10S { } }\n",
        std::string(polling) + "        performance-monitor (Bool) = true { interval (TimeSpan) = P3S { } "
                               "counters (FileName) = \"%counters\" { } rules (FileName) = \"%rules\" { } }\n",
        {everything,
         {"counters", "Elapsed Time|abs\n% Processor Time|avg\nPrivate Bytes|avg\nIO Data Bytes/sec|avg\n"},
         {"rules", "+ host=*\n" + name + "\n"}});
    const std::string program = collector.directory() / name;
    std::filesystem::copy_file(VELMOR_BURNER, program);
    ASSERT_TRUE(collector.awaitLog("START THREAD PerformanceMonitor"));
    Child burner({program, "200", std::to_string(100.0 * mebibyte / seconds)});
    ASSERT_TRUE(collector.awaitLog("   Added counter 6 for PID=" + std::to_string(burner.pid())));
    const KernelFigures first(burner.pid());
    usleep(static_cast<useconds_t>(seconds * 1e6));
    // Its end is found before the next round, which would see a process that is gone as one at rest.
    collector.passLog();
    ASSERT_TRUE(collector.awaitLog("**RELAX PerformanceMonitor"));
    const KernelFigures last(burner.pid());
    burner.signal(SIGKILL);
    burner.reap();
    ASSERT_TRUE(collector.awaitLog("Removed process " + std::to_string(burner.pid())));
    EXPECT_EQ(collector.stop(), 0);

    const double span = last.time - first.time;
    const double percent = 100 * (last.cpu - first.cpu) / span;
    const double rate = (last.bytes - first.bytes) / span;
    const std::vector<Record> found = records(collector, "PerfMonLog", name);
    ASSERT_GE(found.size(), 2U);
    EXPECT_TRUE(found.back().has("137")) << "the exit code of its end";
    double cpu = 0;
    double bytes = 0;
    for (const Record& record : found) {
        if (record.number(2) < 3 && record.number(8) == 0)
            continue; // between two samples
        EXPECT_NEAR(record.number(8), record.number(2) * last.memory, tolerance * record.number(8));
        if (asked) { // on a machine that does nothing else, so that the burner keeps its pace
            EXPECT_NEAR(record.number(4), percent, tolerance * percent);
            EXPECT_NEAR(record.number(3), rate, tolerance * rate);
        }
        cpu += record.number(1);
        bytes += record.number(2) * record.number(3);
    }
    // Start and end are dated to the second.
    const double ofSums = asked ? tolerance : 0.3;
    EXPECT_NEAR(cpu, last.cpu, ofSums * last.cpu + percent / 100);
    EXPECT_NEAR(bytes, last.bytes, ofSums * last.bytes + rate);
}

} // namespace Velmor
