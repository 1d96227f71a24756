// The service of process events on the real kernel, with its sources switched off in turn. Needs root.

#include "platform/linux/trace/LinuxKernelTrace.h"

#include "platform/Errors.h"
#include "platform/linux/processes/LinuxProcesses.h"
#include "platform/linux/trace/ProcessConnector.h"
#include "platform/linux/trace/TracePayload.h"
#include "support/Child.h"
#include "support/Eventually.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <sched.h>
#include <set>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* sessionName = "test";

/// What came.
struct Seen {
    std::mutex mutex;
    std::string prefix; // of the executables that count, or of their file names
    LinuxProcesses* processes = nullptr;
    int starts = 0;
    int ends = 0;
    int lostNames = 0;
    std::map<std::string, int> names; // with the number of starts
    std::set<int64_t> codes;          // -1 for one that can't be learnt
};

void take(Seen& seen, const TraceEvent& event) {
    const std::lock_guard lock(seen.mutex);
    constexpr size_t sidPlace = 8; // behind the ids; 0 without one
    uint32_t sid = 0;
    std::memcpy(&sid, event.payload.data() + sidPlace, sizeof(sid));
    const size_t namePlace = sid != 0 ? 32 : 12;
    std::string name(reinterpret_cast<const char*>(event.payload.data()) + namePlace);
    uint32_t pid = 0;
    std::memcpy(&pid, event.payload.data(), sizeof(pid));
    if (name == "<<lost>>") {
        ++seen.lostNames;
        return;
    }
    if (!name.substr(name.rfind('/') + 1).starts_with(seen.prefix))
        return;
    uint32_t error = 0;
    const ProcessHandle handle = seen.processes->open(pid, error);
    std::string path;
    if (!handle || !seen.processes->modulePath(handle, 0, path, error) || path != name)
        ADD_FAILURE() << "an event's process can't be opened: " << name;
    if (event.type == 1) {
        ++seen.starts;
        ++seen.names[name];
        return;
    }
    ++seen.ends;
    uint32_t code = 0;
    seen.codes.insert(handle && seen.processes->exitCode(handle, code, error) ? int64_t{code} : -1);
}

/// Open descriptors to events and sockets of any kind; those to processes come and go with these.
ptrdiff_t sourcesOpen() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::count_if(begin(entries), end(entries), [](const auto& entry) {
        std::error_code failure;
        const std::string target = std::filesystem::read_symlink(entry.path(), failure).string();
        return target.starts_with("socket:") || target == "anon_inode:[perf_event]";
    });
}

class KernelTraceTest : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "process events need root";
        record.prefix = "w" + std::to_string(getpid());
        record.processes = &processes;
        program = directory / record.prefix;
        std::filesystem::copy_file("/bin/false", program);
    }

    /// Notes what comes while that happens; false if there is no session.
    bool watch(LinuxKernelTrace& trace, const std::function<void()>& happens) {
        record.starts = record.ends = record.lostNames = 0;
        record.names.clear();
        record.codes.clear();
        if (trace.start(sessionName, {}) != NativeError::success)
            return false;
        uint32_t error = 0;
        TraceHandle handle = trace.open(sessionName, error);
        std::thread reader([&] { trace.process(handle, onEvent, [] { return true; }); });
        happens();
        EXPECT_EQ(trace.stop(sessionName), NativeError::success);
        reader.join();
        return true;
    }

    LinuxProcesses processes;
    TempDirectory directory;
    Seen record;
    const KernelTrace::EventCallback onEvent = [this](const TraceEvent& event) { take(record, event); };
    std::string program;
};
} // namespace

TEST_F(KernelTraceTest, EachSourceThatIsOffCostsWhatItTells) {
    using Case = std::tuple<const char*, LinuxKernelTrace::Sources, bool, int64_t>;
    constexpr int count = 20;
    for (const auto& [what, sources, namesAll, code] : {
             Case{"all", {true, true, true, true}, true, 1},
             Case{"no rings", {false, true, true, true}, true, 1},
             Case{"no rings, no table", {false, true, true, false}, true, 1},
             Case{"neither names nor exit records", {false, true, false, false}, false, 1},
             Case{"no connector", {true, false, true, true}, true, 1},
             Case{"no codes", {true, false, false, true}, true, -1},
         }) {
        LinuxKernelTrace trace(processes, sources);
        const bool isSure = sources.rings; // else a look may come too late, for this program as for others
        const bool began = watch(trace, [&] {
            for (int i = 0; i < count; ++i)
                Child({program}).reap();
            eventually([&] {
                const std::lock_guard lock(record.mutex);
                return record.ends + (isSure ? 0 : record.lostNames / 2) >= count;
            });
        });
        ASSERT_TRUE(began) << what << trace.shortcomings();
        if (!namesAll) {
            EXPECT_EQ(record.starts, 0) << what;
            EXPECT_GE(record.lostNames, 2 * count) << what;
            continue;
        }
        EXPECT_TRUE(isSure ? record.starts == count && record.ends == count : record.starts > 0)
            << what << ": " << record.starts << " starts and " << record.ends << " ends";
        if (code == -1)
            record.codes.erase(1); // of one that its parent hadn't waited for
        EXPECT_EQ(record.codes, std::set<int64_t>{code}) << what;
        if (sources.rings) {
            EXPECT_EQ(record.names, (std::map<std::string, int>{{program, count}})) << what;
        }
    }
    LinuxKernelTrace none(processes, {false, false, true, true});
    EXPECT_EQ(none.start(sessionName, {}), NativeError::accessDenied);
    EXPECT_FALSE(none.shortcomings().empty());
}

TEST(TracePayloadTest, WithoutAKnownOwnerThereIsNoSid) {
    std::vector<uint8_t> bytes;
    TracePayload::write(bytes, 1, 2, TracedProcess::unknownOwner, "x");
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 'x', 0}));
}

TEST_F(KernelTraceTest, OneSessionOfANameRunsAndEndsWhenItIsStopped) {
    LinuxKernelTrace trace(processes);
    TraceProperties properties;
    const ptrdiff_t openBefore = sourcesOpen();
    EXPECT_EQ(trace.query(sessionName, properties), NativeError::instanceNotFound);
    ASSERT_EQ(trace.start(sessionName, properties), NativeError::success);
    EXPECT_EQ(trace.start(sessionName, properties), NativeError::alreadyExists);
    EXPECT_EQ(trace.query(sessionName, properties), NativeError::success);
    uint32_t error = 0;
    EXPECT_FALSE(trace.open("other", error));
    TraceHandle handle = trace.open(sessionName, error);
    EXPECT_EQ(trace.process(handle, onEvent, [] { return false; }), NativeError::cancelled);
    std::thread stopper([&] { EXPECT_EQ(trace.stop(sessionName), NativeError::success); });
    EXPECT_EQ(trace.process(handle, onEvent, [] { return true; }), NativeError::success);
    stopper.join();
    EXPECT_EQ(trace.stop(sessionName), NativeError::instanceNotFound);
    EXPECT_EQ(sourcesOpen(), openBefore) << "though a reader, as one that was ended by force, hasn't closed it";
}

TEST_F(KernelTraceTest, AnotherListenersComingIsNoLoss) {
    const auto connector = ProcessConnector::start();
    ASSERT_TRUE(connector);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(ProcessConnector::start());
        Child child({program});
        child.reap();
        std::vector<ProcessNotice> notices;
        EXPECT_TRUE(eventually([&] {
            connector->fetch(notices, SIZE_MAX);
            return std::any_of(notices.begin(), notices.end(), [&](const ProcessNotice& notice) {
                return notice.kind == ProcessNotice::Kind::exited && notice.pid == child.pid();
            });
        }));
    }
    EXPECT_EQ(connector->lost(), 0U);
}

TEST_F(KernelTraceTest, OutsideTheMachinesPidNamespaceThereIsNoSession) {
    Child outside([&] {
        if (unshare(CLONE_NEWPID) != 0)
            return 1;
        return Child([&] {
                   LinuxKernelTrace trace(processes);
                   const bool isRefused = trace.start(sessionName, {}) == NativeError::accessDenied;
                   return isRefused && trace.shortcomings().find("namespace") != std::string::npos ? 0 : 2;
               })
            .reap();
    });
    EXPECT_EQ(outside.reap(), 0);
}

TEST_F(KernelTraceTest, AFollowedProcessThatEndsWhenNobodyWatchesLeavesItsCode) {
    using Case = std::tuple<LinuxProcesses::Sources, bool>;
    for (const auto& [sources, isReaped] :
         {Case{{true, false, false}, true}, Case{{false, true, false}, false}, Case{{false, false, true}, true}}) {
        if (sources.descriptor && !ExitCodes::descriptorsTell())
            continue;
        LinuxProcesses watched(sources);
        LinuxKernelTrace trace(watched);
        record.processes = &watched;
        std::filesystem::copy_file("/bin/sh", program + "sh", std::filesystem::copy_options::overwrite_existing);
        std::unique_ptr<Child> child;
        ProcessHandle held;
        uint32_t error = 0;
        ASSERT_TRUE(watch(trace, [&] {
            child = std::make_unique<Child>(std::vector<std::string>{program + "sh", "-c", "read x; exit 7"});
            ASSERT_TRUE(eventually([&] { return watched.traced().find(child->pid()) != nullptr; }));
            held = watched.open(child->pid(), error);
        }));
        child->closeInput();
        child->awaitEnd();
        if (isReaped)
            child->reap();
        uint32_t code = 0;
        EXPECT_TRUE(watched.exitCode(held, code, error)) << isReaped;
        EXPECT_EQ(code, 7U);
    }
}

} // namespace Velmor
