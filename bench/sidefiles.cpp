// What id values and the event log cost where their directory holds 5,000 files, beside the bare calls of the system.

#include "process/Process.h"
#include "process/naming/IdValues.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/state/ProcessEventLog.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int files = 5000;
constexpr int firstGonePid = 4000000; // beyond what the kernel gives

/// The family's directories, with id value files of processes that are gone.
class Place {
public:
    Place() : home_(std::filesystem::temp_directory_path() / ("velmor-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directories(directory());
        std::ofstream(home_ / "resources.toml") << "InstallDir = \"" << home_.string() << "\"\n";
        setenv("VELMOR_RESOURCES", (home_ / "resources.toml").c_str(), 1);
        setenv("VELMOR_STATE_DIR", home_.c_str(), 1);
        fill();
    }
    ~Place() { std::filesystem::remove_all(home_); }

    std::filesystem::path directory() const { return home_ / "Log/temp"; }
    void fill() const {
        for (int i = 0; i < files; ++i)
            std::ofstream(directory() / ("user_id-bob-" + std::to_string(firstGonePid + i) + "-cad.idval"))
                << "\nid=1\n";
    }

private:
    std::filesystem::path home_;
};

Place& place() {
    static Place instance;
    return instance;
}

void lookUp() {
    std::string text = "alice";
    Velmor::getIdValues("alice", text, "user id", "project id", 1, "/usr/bin/cad");
    benchmark::DoNotOptimize(text);
}

/// The first look-up of a run cleans: once, since the next cleaning comes in five minutes.
void lookUpThatCleans(benchmark::State& state) {
    place();
    for (auto _ : state)
        lookUp();
}
BENCHMARK(lookUpThatCleans)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void bareCleaning(benchmark::State& state) {
    place().fill();
    for (auto _ : state) {
        DIR* entries = opendir(place().directory().c_str());
        while (const dirent* entry = readdir(entries)) {
            const long pid = std::strtol(entry->d_name + std::string_view("user_id-bob-").size(), nullptr, 10);
            if (entry->d_name[0] != '.' && syscall(SYS_pidfd_open, pid, 0) < 0)
                unlinkat(dirfd(entries), entry->d_name, 0);
        }
        closedir(entries);
    }
}
BENCHMARK(bareCleaning)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void lookUpAmongMany(benchmark::State& state) {
    place().fill();
    sleep(3); // what has just changed is looked at anew
    for (auto _ : state)
        lookUp();
}
BENCHMARK(lookUpAmongMany)->Unit(benchmark::kMicrosecond);

void eventAmongMany(benchmark::State& state) {
    Velmor::programState().tempDirectory = place().directory().string() + "/";
    Velmor::RuntallySettings& settings = Velmor::runtallyState().settings;
    settings.eventLogOn = true;
    settings.eventLogStem = "procevents";
    settings.eventLogDays = 7;
    const Velmor::ProcessPointer process(new Velmor::Process(1, 0, Velmor::Process::Mode::running, true));
    for (auto _ : state)
        Velmor::logProcessEvent(false, process);
}
BENCHMARK(eventAmongMany)->Unit(benchmark::kMicrosecond);

void bareEvent(benchmark::State& state) {
    const std::string path = (place().directory() / "bare.eventlog").string();
    const std::string line(100, 'x');
    for (auto _ : state) {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
        benchmark::DoNotOptimize(write(file, line.data(), line.size()));
        close(file);
    }
}
BENCHMARK(bareEvent)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
