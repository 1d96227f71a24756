// A round of the process poller over idle processes that haven't changed, beside a bare loop that does for each what a
// first look must: open a pidfd, read the executable's link, the `stat` line and the owner, close. The figures named
// "per_process" are microseconds of processor time for each process; "resident_kib" is the program's whole memory.

#include "Children.h"

#include "platform/Platform.h"
#include "process/ProcPoll.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ProcessPoller.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

size_t lookBare() {
    size_t count = 0;
    DIR* proc = opendir("/proc");
    while (const dirent* entry = readdir(proc)) {
        const int pid = std::atoi(static_cast<const char*>(entry->d_name));
        if (pid == 0)
            continue;
        const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        const std::string base = "/proc/" + std::to_string(pid);
        std::array<char, 4096> buffer;
        const ssize_t link = readlink((base + "/exe").c_str(), buffer.data(), buffer.size());
        const int stat = open((base + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(read(stat, buffer.data(), buffer.size()));
        close(stat);
        struct stat owner {};
        benchmark::DoNotOptimize(fstatat(AT_FDCWD, base.c_str(), &owner, 0));
        close(descriptor);
        count += link > 0 ? 1 : 0;
    }
    closedir(proc);
    return count;
}

template <typename Round>
void measure(benchmark::State& state, Round&& round) {
    const IdleProcesses processes(static_cast<int>(state.range(0)));
    round(); // the first look is made once
    const double begin = processorSeconds();
    for (auto _ : state)
        round();
    const double spent = processorSeconds() - begin;
    state.counters["per_process"] =
        spent * 1e6 / static_cast<double>(state.iterations()) / static_cast<double>(state.range(0));
    state.counters["resident_kib"] = residentKib();
}

void bareLoop(benchmark::State& state) {
    measure(state, [] { benchmark::DoNotOptimize(lookBare()); });
}

void pollRound(benchmark::State& state) {
    Velmor::LoggerUnit::setDebugLevel(0);
    Velmor::RuntallyState& collector = Velmor::runtallyState();
    collector.exeFinder = std::make_unique<Velmor::ExeFinder>(Velmor::SmartPointer<Velmor::LoggerUnit>());
    collector.settings.pollInterval = Velmor::TimeSpan(300);
    measure(state, [] { Velmor::procPoll(); });
    collector.registry.processMap.clear();
    collector.procPoll.clear();
}

BENCHMARK(bareLoop)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(pollRound)->Arg(200)->Arg(2000)->Iterations(20)->Unit(benchmark::kMillisecond);

} // namespace

int main(int count, char** values) {
    raiseDescriptorLimit();
    benchmark::Initialize(&count, values);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
