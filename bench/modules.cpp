// A round of the module poller over processes that have libraries loaded, beside a bare loop that reads the mappings of
// each and does nothing with them. "per_process" is microseconds of processor time for each process.

#include "Children.h"

#include "programs/collectors/agent/ThreadRecord.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/ModulePoller.h"

#include <benchmark/benchmark.h>

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>

namespace {
constexpr int processCount = 500;
constexpr int moduleCount = 40;

/// Files on the disk that look like libraries; each is mapped as a loader would do it.
class Libraries {
public:
    Libraries() : directory_(std::filesystem::temp_directory_path() / ("bench_modules." + std::to_string(getpid()))) {
        std::filesystem::create_directory(directory_);
        for (int i = 0; i < moduleCount; ++i)
            std::ofstream(path(i)) << std::string(fileSize, 'x');
    }
    Libraries(const Libraries&) = delete;
    Libraries& operator=(const Libraries&) = delete;
    ~Libraries() { std::filesystem::remove_all(directory_); }

    void load() const {
        for (int i = 0; i < moduleCount; ++i) {
            const int file = open(path(i).c_str(), O_RDONLY | O_CLOEXEC);
            const int protections[] = {PROT_READ, PROT_READ | PROT_EXEC, PROT_READ, PROT_READ | PROT_WRITE};
            auto* begin = static_cast<char*>(mmap(nullptr, fileSize, PROT_READ, MAP_PRIVATE, file, 0));
            for (size_t part = 0; part < std::size(protections); ++part)
                (void)mmap(begin + part * page, page, protections[part], MAP_PRIVATE | MAP_FIXED, file,
                           static_cast<off_t>(part * page));
            close(file);
        }
    }

private:
    static constexpr size_t page = 4096;
    static constexpr size_t fileSize = 4 * page;

    std::string path(int number) const {
        return (directory_ / ("libbench-module-" + std::to_string(number) + ".so.1")).string();
    }

    std::filesystem::path directory_;
};

template <typename Round>
void measure(benchmark::State& state, Round&& round) {
    round(); // the first look is made once
    const double begin = processorSeconds();
    for (auto _ : state)
        round();
    state.counters["per_process"] =
        (processorSeconds() - begin) * 1e6 / static_cast<double>(state.iterations()) / processCount;
}

void bareReading(benchmark::State& state) {
    const Libraries libraries;
    const IdleProcesses processes(processCount, [&] { libraries.load(); });
    std::array<char, 65536> buffer;
    measure(state, [&] {
        for (const pid_t pid : processes.ids()) {
            const int file = open(("/proc/" + std::to_string(pid) + "/maps").c_str(), O_RDONLY | O_CLOEXEC);
            while (read(file, buffer.data(), buffer.size()) > 0) {
            }
            close(file);
        }
    });
}

void moduleRound(benchmark::State& state) {
    Velmor::LoggerUnit::setDebugLevel(0);
    const Libraries libraries;
    const IdleProcesses processes(processCount, [&] { libraries.load(); });
    Velmor::RuntallyState& collector = Velmor::runtallyState();
    for (const pid_t id : processes.ids()) {
        const auto pid = static_cast<uint32_t>(id);
        collector.registry.processMap[pid] =
            Velmor::ProcessPointer(new Velmor::Process(pid, 0, Velmor::Process::Mode::running, true));
    }
    const std::atomic<int32_t> report{Velmor::Report::nothing};
    measure(state, [&] { Velmor::modPoll(report); });
    std::vector<std::string> modules;
    collector.registry.processMap.begin()->second->getModules(modules);
    state.counters["modules"] = static_cast<double>(modules.size());
    collector.registry.processMap.clear();
}

BENCHMARK(bareReading)->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(moduleRound)->Iterations(10)->Unit(benchmark::kMillisecond);

} // namespace

int main(int count, char** values) {
    raiseDescriptorLimit();
    benchmark::Initialize(&count, values);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
