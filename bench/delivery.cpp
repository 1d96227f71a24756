// The slices of 10,000 tracked processes at a delivery, beside the bare writing of the same number of records with two
// calls of the system each.

#include "process/Process.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

constexpr uint32_t tracked = 10000;

std::string makeDirectory() {
    std::string pattern = "/tmp/velmor_bench_XXXXXX";
    return std::string(mkdtemp(pattern.data())) + "/";
}

void bareWrites(benchmark::State& state) {
    const std::string directory = makeDirectory();
    const std::string record(200, 'x');
    for (auto _ : state) {
        const int file = open((directory + "file").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        for (uint32_t i = 0; i < tracked; ++i) {
            benchmark::DoNotOptimize(write(file, record.data(), record.size()));
            benchmark::DoNotOptimize(write(file, "\n", 1));
        }
        close(file);
    }
    std::filesystem::remove_all(directory);
}
BENCHMARK(bareWrites)->Iterations(10)->Unit(benchmark::kMillisecond);

void dumpAll(benchmark::State& state) {
    Velmor::LoggerUnit::setDebugLevel(0);
    Velmor::RuntallyState& collector = Velmor::runtallyState();
    const std::string directory = makeDirectory();
    std::ofstream(directory + "rules") << "include datatype=*\n";
    std::string error;
    collector.includeExclude.load(directory + "rules", error);
    // All stand for this one process: each entry holds an open handle, as in the collector.
    for (uint32_t i = 0; i < tracked; ++i) {
        Velmor::ProcessPointer process(
            new Velmor::Process(static_cast<uint32_t>(getpid()), 0, Velmor::Process::Mode::running, true));
        process->setApplication("bench");
        collector.registry.processMap.emplace(static_cast<uint32_t>(getpid()) + i, process);
    }
    Velmor::registerLogFile(directory + "ProcessLog", "process", Velmor::TimeSpan(), false, Velmor::Runtally::dumpAll);
    for (auto _ : state) {
        // Slices are looked up by the id of their process, so each entry takes the road of a record by itself.
        Velmor::Runtally::checkOutAll();
        for (const auto& [pid, process] : collector.registry.processMap)
            Velmor::Runtally::logProcessData(process);
        Velmor::Runtally::checkInAll();
    }
    Velmor::logFileRegistry().clear();
    collector.registry.processMap.clear();
    std::filesystem::remove_all(directory);
}
BENCHMARK(dumpAll)->Iterations(10)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
