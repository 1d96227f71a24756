// A sample of the performance counters of idle processes, beside bare loops that read the same files of /proc: one that
// opens them at each look, and one that keeps them open, which is the floor. And the update of one counter, by the
// place of its process in the sample. "per_process" is microseconds of processor time for each process.

#include "Children.h"

#include "platform/PerformanceLayout.h"
#include "process/performance/OscQuery.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {
constexpr std::array fileNames{"stat", "status", "io"};

std::string pathOf(const std::string& pid, const char* name) {
    return "/proc/" + pid + "/" + name;
}

/// The ids of all processes but the kernel's threads.
std::vector<std::string> processIds() {
    std::vector<std::string> ids;
    DIR* proc = opendir("/proc");
    while (const dirent* entry = readdir(proc)) {
        const std::string name(static_cast<const char*>(entry->d_name));
        char target = 0;
        if (std::atoi(name.c_str()) != 0 && readlink(pathOf(name, "exe").c_str(), &target, 1) >= 0)
            ids.push_back(name);
    }
    closedir(proc);
    return ids;
}

void readHandles(const std::string& pid) {
    struct stat handles {};
    benchmark::DoNotOptimize(stat(pathOf(pid, "fd").c_str(), &handles));
}

template <typename Round>
void measure(benchmark::State& state, size_t processes, Round&& round) {
    round(); // the first look is made once
    const double begin = processorSeconds();
    for (auto _ : state)
        round();
    state.counters["per_process"] =
        (processorSeconds() - begin) * 1e6 / static_cast<double>(state.iterations()) / static_cast<double>(processes);
}

void bareOpening(benchmark::State& state) {
    const IdleProcesses processes(static_cast<int>(state.range(0)));
    const size_t count = processIds().size();
    std::array<char, 4096> buffer;
    measure(state, count, [&] {
        for (const std::string& pid : processIds()) {
            for (const char* name : fileNames) {
                const int file = open(pathOf(pid, name).c_str(), O_RDONLY | O_CLOEXEC);
                benchmark::DoNotOptimize(read(file, buffer.data(), buffer.size()));
                close(file);
            }
            readHandles(pid);
        }
    });
}

void bareKeptOpen(benchmark::State& state) {
    const IdleProcesses processes(static_cast<int>(state.range(0)));
    const std::vector<std::string> ids = processIds();
    std::vector<int> files;
    for (const std::string& pid : ids)
        for (const char* name : fileNames)
            files.push_back(open(pathOf(pid, name).c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer;
    measure(state, ids.size(), [&] {
        DIR* proc = opendir("/proc");
        while (const dirent* entry = readdir(proc))
            benchmark::DoNotOptimize(entry->d_ino);
        closedir(proc);
        for (const int file : files)
            benchmark::DoNotOptimize(pread(file, buffer.data(), buffer.size(), 0));
        for (const std::string& pid : ids)
            readHandles(pid);
    });
    for (const int file : files)
        close(file);
}

void sample(benchmark::State& state) {
    const IdleProcesses processes(static_cast<int>(state.range(0)));
    const auto query = Velmor::OscOpenQuery(0);
    measure(state, processIds().size(), [&] {
        benchmark::DoNotOptimize(Velmor::OscCollectQueryData(query.get()));
        Velmor::OscNextSample(query.get());
    });
}

/// By the place of the process: 0 the first, 1 the middle, 2 the last.
void update(benchmark::State& state) {
    const IdleProcesses processes(2000);
    std::vector<pid_t> ids = processes.ids();
    std::sort(ids.begin(), ids.end());
    const auto query = Velmor::OscOpenQuery(0);
    Velmor::OscCollectQueryData(query.get());
    Velmor::OscCounter counter;
    counter.pid = static_cast<uint32_t>(ids[static_cast<size_t>(state.range(0)) * (ids.size() - 1) / 2]);
    counter.counterId = static_cast<uint32_t>(state.range(1));
    Velmor::OscUpdateCounter(query.get(), counter); // takes the later sample
    for (auto _ : state)
        if (Velmor::OscUpdateCounter(query.get(), counter) != 0)
            state.SkipWithError("the update failed");
}

BENCHMARK(bareOpening)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(bareKeptOpen)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(sample)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(update)
    ->ArgsProduct({{0, 1, 2}, {Velmor::PerfTitle::privateBytes, Velmor::PerfTitle::processorTime}})
    ->Unit(benchmark::kNanosecond);

} // namespace

int main(int count, char** values) {
    raiseDescriptorLimit();
    benchmark::Initialize(&count, values);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
