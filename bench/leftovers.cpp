// What a start needs to hand over 20,000 files that a crash left behind, beside bare renames of as many with one flush
// of their directory, and beside the same with the data of each flushed before, which a hand-over promises.

#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Agent.h"
#include "shared/library/logger/LoggerUnit.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

constexpr int files = 20000;

/// A directory of the machine's own file system with the data files of a run that was killed.
class CrashSite {
public:
    CrashSite() {
        std::string pattern = "/var/tmp/velmor_bench_XXXXXX";
        directory_ = std::string(mkdtemp(pattern.data())) + "/";
        for (int i = 0; i < files; ++i)
            std::ofstream(name(i)) << "record";
        sync();
    }
    CrashSite(const CrashSite&) = delete;
    CrashSite& operator=(const CrashSite&) = delete;
    ~CrashSite() { std::filesystem::remove_all(directory_); }

    const std::string& directory() const { return directory_; }
    std::string name(int number) const { return directory_ + "ProcessLog-" + std::to_string(number) + ".make.tmp"; }
    std::string finalName(int number) const { return directory_ + "ProcessLog-" + std::to_string(number) + ".data"; }

    size_t delivered() const {
        size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            count += entry.path().extension() == ".data" ? 1 : 0;
        return count;
    }

private:
    std::string directory_;
};

void flushData(const std::string& name) {
    const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(fdatasync(file));
    close(file);
}

void bareRenames(benchmark::State& state, bool flushesData) {
    for (auto _ : state) {
        state.PauseTiming();
        const CrashSite site;
        const int directory = open(site.directory().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        state.ResumeTiming();
        for (int i = 0; i < files; ++i) {
            if (flushesData)
                flushData(site.name(i));
            benchmark::DoNotOptimize(rename(site.name(i).c_str(), site.finalName(i).c_str()));
        }
        benchmark::DoNotOptimize(fsync(directory));
        state.PauseTiming();
        close(directory);
        state.ResumeTiming();
    }
}
BENCHMARK_CAPTURE(bareRenames, ofFlushedData, false)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(bareRenames, withTheirData, true)->Iterations(1)->Unit(benchmark::kMillisecond);

void leftovers(benchmark::State& state) {
    Velmor::LoggerUnit::setDebugLevel(0);
    for (auto _ : state) {
        state.PauseTiming();
        const CrashSite site;
        Velmor::programState().dataDirectory = site.directory();
        state.ResumeTiming();
        Velmor::Agent::handleLeftovers();
        state.PauseTiming();
        if (site.delivered() != files)
            state.SkipWithError("not all were handed over");
        state.ResumeTiming();
    }
}
BENCHMARK(leftovers)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
