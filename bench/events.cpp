// Process events from the kernel to the written record, beside the bare readers of the same sources. Needs root.
// `bench_events` alone tells its forms:
//
// cost [COUNT]: a short process and /bin/true, without a reader, with bare readers, and with the collector
//
// flood [SECONDS]: two spawners as fast as they can, and what was lost
//
// rest [SECONDS]: what the source costs when nothing happens
//
// walk: the walk of one event's schema, among 200 classes
//
// Costs are processor time in microseconds for each process: of the spawning side with its children, and of the reader.

#include "platform/EventSchema.h"
#include "platform/Platform.h"
#include "platform/linux/trace/LinuxEventSchema.h"
#include "platform/linux/trace/ProcessConnector.h"
#include "platform/linux/trace/SidebandRings.h"
#include "platform/linux/trace/TracePayload.h"
#include "process/events/EventDecoder.h"
#include "process/events/KernelTracer.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "programs/collectors/agent/Win32/Runtally/state/TracerState.h"
#include "programs/collectors/agent/Win32/Runtally/workers/EventTracer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Velmor;
using namespace std::chrono_literals;

namespace {
constexpr const char* shortProgram = "bench_short";

double secondsOf(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// What a spawner in a process of its own used: processor time with its children's, and time on the wall.
struct Spawned {
    double processor = 0;
    double wall = 0;
    uint64_t count = 0;
};

void spawnOne(const std::string& program) {
    char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    const pid_t child = vfork();
    if (child == 0) {
        execv(arguments[0], arguments);
        _exit(127);
    }
    waitpid(child, nullptr, 0);
}

/// Starts a spawner that goes on while `more` says so, and returns where its result can be read.
int startSpawner(const std::string& program, const std::function<bool(uint64_t done)>& more) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    if (fork() == 0) {
        std::this_thread::sleep_for(150ms); // until it counts as a process of its own, as a shell would
        const double begin = wallSeconds();
        Spawned result;
        while (more(result.count)) {
            spawnOne(program);
            ++result.count;
        }
        result.wall = wallSeconds() - begin;
        result.processor = secondsOf(RUSAGE_SELF) + secondsOf(RUSAGE_CHILDREN);
        const ssize_t written = write(ends[1], &result, sizeof(result));
        _exit(written == sizeof(result) ? 0 : 1);
    }
    close(ends[1]);
    return ends[0];
}

Spawned awaitSpawner(int end) {
    Spawned result;
    if (read(end, &result, sizeof(result)) != sizeof(result))
        std::abort();
    close(end);
    wait(nullptr);
    return result;
}

/// Fetches by the clock, and looks at nothing.
class BareReaders {
public:
    BareReaders()
        : connector_(ProcessConnector::start()), rings_(SidebandRings::start(SidebandRings::Records::names)),
          thread_([this] { run(); }) {}
    BareReaders(const BareReaders&) = delete;
    BareReaders& operator=(const BareReaders&) = delete;
    ~BareReaders() {
        stop_ = true;
        thread_.join();
    }

private:
    void run() {
        std::vector<ProcessNotice> notices;
        while (!stop_) {
            std::this_thread::sleep_for(20ms);
            notices.clear();
            connector_->fetch(notices, 100000);
            rings_->fetch();
            for (const ProcessNotice& notice : notices)
                if (notice.kind == ProcessNotice::Kind::exited)
                    rings_->takeExecuted(notice.pid, 0, notice.time);
        }
    }

    std::unique_ptr<ProcessConnector> connector_;
    std::unique_ptr<SidebandRings> rings_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

/// The collector with events as its only source, writing records into a directory of its own.
class Tracing {
public:
    explicit Tracing(const std::string& directory) : record_("EventTracer", 0) {
        LoggerUnit::setDebugLevel(0);
        resetRuntallyState();
        RuntallyState& state = runtallyState();
        state.exeFinder = std::make_unique<ExeFinder>(SmartPointer<LoggerUnit>());
        state.settings.eventsActive = 1;
        state.programStart = DateTime().getSeconds();
        programState().quitFlag = 0;
        programState().dataDirectory = directory;
        std::filesystem::create_directories(directory + "Log/temp");
        std::ofstream(directory + "resources.toml") << "InstallDir = \"" << directory << "\"\n";
        setenv("VELMOR_RESOURCES", (directory + "resources.toml").c_str(), 1);
        std::ofstream(directory + "rules") << "include datatype=*\n";
        std::string error;
        state.includeExclude.load(directory + "rules", error);
        Process::setLogger({});
        registerLogFile(directory + "ProcessLog", "process", TimeSpan(), false, Runtally::dumpAll);
        thread_ = std::thread([this] { eventTracer(&record_); });
        while (!tracerState().running)
            std::this_thread::sleep_for(10ms);
    }
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;
    ~Tracing() {
        programState().quitFlag = 1;
        thread_.join();
        deliverAll(true);
        resetRuntallyState();
    }

private:
    ThreadRecord record_;
    std::thread thread_;
};

class Directory {
public:
    Directory() : path_(std::filesystem::temp_directory_path() / ("bench_events" + std::to_string(getpid()))) {
        std::filesystem::create_directory(path_);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory() { std::filesystem::remove_all(path_); }
    std::string path() const { return path_.string() + "/"; }

    /// A program that enters and leaves.
    std::string shortLived() const {
        const std::string path = this->path() + shortProgram;
        std::ofstream(path + ".s") << ".globl _start\n_start: mov $60,%eax\nxor %edi,%edi\nsyscall\n";
        const std::string command = "cc -static -nostdlib -o " + path + " " + path + ".s 2>/dev/null";
        return std::system(command.c_str()) == 0 ? path : "/bin/true";
    }

    size_t records(const std::string& name) const {
        size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            if (entry.path().extension() != ".data")
                continue;
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);)
                count += line.find(":0:" + name + ":0:") != std::string::npos;
        }
        return count;
    }

private:
    std::filesystem::path path_;
};

struct Cost {
    double spawner; // microseconds for each process
    double reader;
    double wall; // seconds
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// What rounds of one kind cost more than those without a reader just before them.
struct Added {
    void note(const Cost& none, const Cost& with) {
        spawner.push_back(with.spawner - none.spawner);
        reader.push_back(with.reader);
        wall.push_back((with.wall / none.wall - 1) * 100);
    }
    double inAll() const { return median(spawner) + median(reader); }

    std::vector<double> spawner;
    std::vector<double> reader;
    std::vector<double> wall; // per cent
};

Cost measure(const std::string& program, uint64_t count) {
    const double begin = secondsOf(RUSAGE_SELF);
    const Spawned spawned = awaitSpawner(startSpawner(program, [=](uint64_t done) { return done < count; }));
    std::this_thread::sleep_for(150ms); // until the last has been dealt with
    const auto each = [&](double seconds) { return seconds * 1e6 / static_cast<double>(count); };
    return {each(spawned.processor), each(secondsOf(RUSAGE_SELF) - begin), spawned.wall};
}

/// Medians of rounds that take turns: the spawning side's own time varies more from round to round than any reader
/// adds.
void costOf(const std::string& program, uint64_t count, uint64_t rounds, const Directory& directory) {
    const uint64_t each = std::max<uint64_t>(count / rounds, 1);
    std::vector<double> alone;
    Added bare;
    Added all;
    for (uint64_t i = 0; i < rounds; ++i) {
        const Cost none = measure(program, each);
        alone.push_back(none.spawner);
        {
            const BareReaders readers;
            bare.note(none, measure(program, each));
        }
        const Tracing tracing(directory.path());
        all.note(none, measure(program, each));
    }
    std::printf("%s, %lu times %lu: alone %.1f us; bare readers %+.1f and %.1f us, floor %.1f us; collector %+.1f and "
                "%.1f us, in all %.1f us, %.2f times the floor; wall %+.1f and %+.1f %%\n",
                program.c_str(), rounds, each, median(alone), median(bare.spawner), median(bare.reader), bare.inAll(),
                median(all.spawner), median(all.reader), all.inAll(), all.inAll() / bare.inAll(), median(bare.wall),
                median(all.wall));
}

void cost(uint64_t count) {
    constexpr uint64_t shortRounds = 40; // a short process drowns in the noise sooner, and takes less time
    constexpr uint64_t rounds = 10;
    const Directory directory;
    std::filesystem::create_directories(directory.path() + "Log/temp");
    std::this_thread::sleep_for(3s); // a directory that has just changed is looked at anew each time
    costOf(directory.shortLived(), 4 * count, shortRounds, directory);
    costOf("/bin/true", count, rounds, directory);
}

void flood(int seconds) {
    const Directory directory;
    const std::string program = directory.shortLived();
    uint64_t started = 0;
    uint64_t lost = 0;
    {
        const Tracing tracing(directory.path());
        const double end = wallSeconds() + seconds;
        const auto more = [=](uint64_t) { return wallSeconds() < end; };
        const std::array spawners{startSpawner(program, more), startSpawner(program, more)};
        for (const int spawner : spawners)
            started += awaitSpawner(spawner).count;
        std::this_thread::sleep_for(2s);
        lost = KernelTracer::losses().events;
    }
    std::printf("%lu started in %d s, %.0f a second; %zu records; %lu events lost\n", started, seconds,
                static_cast<double>(started) / seconds, directory.records(shortProgram), lost);
}

void rest(int seconds) {
    const Directory directory;
    const Tracing tracing(directory.path());
    const double begin = secondsOf(RUSAGE_SELF);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    std::printf("at rest: %.4f s of processor time a minute\n", (secondsOf(RUSAGE_SELF) - begin) * 60 / seconds);
}

/// The classes of the system behind many others.
class LargeSchema : public EventSchema {
public:
    LargeSchema() {
        for (int i = 0; i < 198; ++i)
            others_.push_back({"Class" + std::to_string(i),
                               {{"DisplayName", std::string("x")},
                                {"Guid", std::string("{3D6FA8D0-FE05-11D0-9DDA-00C04FD7BB00}")},
                                {"EventVersion", 2}},
                               {}});
        std::span<const SchemaClass* const> real;
        real_.classesBelow("EventTrace", false, real);
        for (const SchemaClass& other : others_)
            all_.push_back(&other);
        all_.insert(all_.end(), real.begin(), real.end());
    }
    uint32_t connect(std::string_view) override { return SchemaConnection::connected; }
    bool classesBelow(std::string_view path, bool directOnly, std::span<const SchemaClass* const>& classes) override {
        if (directOnly)
            return real_.classesBelow(path, directOnly, classes);
        classes = all_;
        return true;
    }

private:
    LinuxEventSchema real_;
    std::vector<SchemaClass> others_;
    std::vector<const SchemaClass*> all_;
};

void walk() {
    LargeSchema schema;
    Platform ports = nativePlatform();
    ports.eventSchema = &schema;
    usePlatform(&ports);
    std::vector<uint8_t> payload;
    TracePayload::write(payload, 1234, 1, 0, "/usr/bin/some-program");
    constexpr int rounds = 100000;
    uint64_t sum = 0;
    const double begin = wallSeconds();
    for (int i = 0; i < rounds; ++i) {
        const SchemaClass* eventClass = EventDecoder::findEventClass(guidText(TracePayload::guid), 2);
        const SchemaClass* typeClass = EventDecoder::findEventTypeClass(*eventClass, 1);
        EventDecoder decoder;
        EventDecoder::PropertyList list;
        std::vector<uint32_t> order;
        EventDecoder::getProperties(*typeClass, list, order);
        const uint8_t* position = payload.data();
        for (const uint32_t index : order)
            position = decoder.getPropertyValue(*list[index], position,
                                                static_cast<uint16_t>(payload.data() + payload.size() - position));
        sum += decoder.values().uint32Value + decoder.values().stringValue.size();
    }
    std::printf("walk among 200 classes: %.2f us (%lu)\n", (wallSeconds() - begin) * 1e6 / rounds, sum);
    usePlatform(nullptr);
}
} // namespace

int main(int count, char** values) {
    const std::string what = count > 1 ? values[1] : "";
    const int number = count > 2 ? std::atoi(values[2]) : 0;
    if (what == "cost")
        cost(number > 0 ? static_cast<uint64_t>(number) : 20000);
    else if (what == "flood")
        flood(number > 0 ? number : 30);
    else if (what == "rest")
        rest(number > 0 ? number : 60);
    else if (what == "walk")
        walk();
    else
        return std::fputs("Usage: bench_events cost [COUNT] | flood [SECONDS] | rest [SECONDS] | walk\n", stderr), 2;
    return 0;
}
