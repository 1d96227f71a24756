#include "platform/linux/processes/LinuxProcesses.h"

#include "platform/Errors.h"
#include "support/Child.h"
#include "support/Eventually.h"
#include "support/TempDirectory.h"
#include "support/TinyProgram.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr const char* sleepProgram = "/bin/sleep";

/// A process whose main thread has ended while another runs on: until SIGTERM, which makes that one exit with 5.
int runWithoutMainThread() {
    pthread_t thread;
    const auto body = [](void*) -> void* {
        sigset_t wanted;
        sigemptyset(&wanted);
        sigaddset(&wanted, SIGTERM);
        int received = 0;
        sigwait(&wanted, &received);
        _exit(5);
    };
    sigset_t blocked;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    if (pthread_create(&thread, nullptr, body, nullptr) != 0)
        return 1;
    syscall(SYS_exit, 0);
    return 1;
}

class ProcessesTest : public testing::Test {
protected:
    /// A copy of a program that sleeps, under a name of the test's own.
    std::string sleeperNamed(const std::string& name) {
        std::filesystem::copy_file(sleepProgram, directory / name);
        return directory / name;
    }
    bool lists(uint32_t pid) {
        EXPECT_TRUE(processes.enumerate(ids));
        return std::find(ids.begin(), ids.end(), pid) != ids.end();
    }
    std::string pathOf(const ProcessHandle& process) {
        std::vector<ModuleId> room(1);
        size_t count = 0;
        std::string path;
        return processes.modules(process, room, count, error) && processes.modulePath(process, room[0], path, error)
                   ? path
                   : "none";
    }
    /// Behind the image.
    std::vector<std::string> modulesOf(const ProcessHandle& process) {
        std::vector<ModuleId> room(50);
        size_t count = 0;
        std::vector<std::string> paths;
        EXPECT_TRUE(processes.modules(process, room, count, error));
        for (size_t i = 1; i < count; ++i)
            EXPECT_TRUE(processes.modulePath(process, room[i], paths.emplace_back(), error));
        return paths;
    }
    std::string ownerOf(const ProcessHandle& process) {
        std::string sid;
        const auto token = processes.openToken(process, error);
        return token && processes.tokenUser(token, sid, error) ? sid : "none";
    }
    /// No user's process has the kernel's thread 2 for a parent.
    static bool isKernelThread(uint32_t pid) {
        const std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
        return status.find("\nPPid:\t2\n") != std::string::npos || status.starts_with("Name:\tkthreadd\n");
    }
    /// The code as text, or "unknown".
    static std::string codeOf(LinuxProcesses& asked, const ProcessHandle& process) {
        uint32_t code = 0;
        uint32_t failure = 0;
        return asked.exitCode(process, code, failure) ? std::to_string(code) : "unknown";
    }

    TempDirectory directory;
    LinuxProcesses processes;
    std::vector<uint32_t> ids;
    uint32_t error = 0;
};

/// The exit codes that one source tells by itself.
struct SourceCase {
    LinuxProcesses::Sources sources;
    bool ofZombies;
    bool ofReaped;
};
class ExitCodeTest : public ProcessesTest, public testing::WithParamInterface<SourceCase> {
protected:
    /// Waits for the end, and looks as long as there is a zombie and when it has gone.
    static void expectCode(LinuxProcesses& asked, const ProcessHandle& process, Child& child, const char* code) {
        child.awaitEnd();
        EXPECT_EQ(codeOf(asked, process), GetParam().ofZombies ? code : "unknown");
        child.reap();
        EXPECT_EQ(codeOf(asked, process), GetParam().ofReaped ? code : "unknown");
    }
};
} // namespace

TEST_F(ProcessesTest, NamesOfFilesAreTakenAsTheyAreWhateverBecomesOfTheFile) {
    using Case = std::tuple<const char*, bool, const char*>;
    for (const auto& [file, deleted, shown] :
         {Case{"gone", true, "gone"}, Case{"here (deleted)", false, "here (deleted)"},
          Case{"both (deleted)", true, "both (deleted)"}, Case{"other\nline (deleted)", false, "other?line (deleted)"},
          Case{"line\nfeed\x1e", false, "line?feed?"}}) {
        const std::string path = sleeperNamed(file);
        Child child({path, "600"});
        if (deleted)
            std::filesystem::remove(path);
        const auto process = processes.open(child.pid(), error);
        ASSERT_TRUE(process) << file;
        EXPECT_EQ(pathOf(process), directory / shown);
        EXPECT_TRUE(processes.isFileHere(process) || deleted || path != directory / shown) << file;
        for (const std::string& module : modulesOf(process))
            EXPECT_FALSE(module.ends_with(shown)) << "the image is none of its own modules";
    }
}

TEST_F(ProcessesTest, AProgramInAnotherRootIsKnownByItsOwnPathWhichLeadsNowhereHere) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can change the root";
    const std::string name = "/velmor" + std::to_string(getpid());
    const std::string path = directory.path() + name.substr(1);
    writeTinyProgram(path, true);
    Child inside(
        [&] { return chroot(directory.path().c_str()) == 0 ? execl(name.c_str(), name.c_str(), nullptr) : 1; });
    Child outside({path});
    for (const auto& [child, shown] : {std::pair{&inside, name}, std::pair{&outside, path}}) {
        ASSERT_TRUE(eventually([&] { return pathOf(processes.open(child->pid(), error)) == shown; })) << shown;
        const auto process = processes.open(child->pid(), error);
        EXPECT_EQ(processes.isFileHere(process), child == &outside);
        EXPECT_TRUE(modulesOf(process).empty());
    }
    std::filesystem::remove(path);
    EXPECT_TRUE(processes.isFileHere(processes.open(outside.pid(), error))) << "it led there before it was deleted";
}

TEST_F(ProcessesTest, OutOfDescriptorsItStillSeesWhatRunsAndWhatHasEnded) {
    std::vector<std::unique_ptr<Child>> many;
    for (int i = 0; i < 60; ++i)
        many.push_back(std::make_unique<Child>([] { return pause(); }));
    Child looker([&] {
        const rlimit room{static_cast<rlim_t>(open("/", O_RDONLY)) + 70, 4096};
        std::vector<ProcessHandle> held;
        bool isRefused = false;
        if (setrlimit(RLIMIT_NOFILE, &room) != 0)
            return 1;
        for (const auto& child : many) {
            held.push_back(processes.open(child->pid(), error));
            isRefused = isRefused || (!held.back() && error == NativeError::tooManyOpenFiles);
        }
        if (!isRefused || !lists(many.back()->pid()))
            return 2;
        held.clear();
        return processes.open(many.back()->pid(), error) ? 0 : 3;
    });
    EXPECT_EQ(looker.reap(), 0);
}

TEST_F(ProcessesTest, KernelThreadsThreadsAndZombiesAreNoProcesses) {
    Child zombie({"/bin/true"});
    zombie.awaitEnd();
    EXPECT_FALSE(lists(zombie.pid()));
    EXPECT_EQ(std::find(ids.begin(), ids.end(), 0U), ids.end());
    for (int look = 0; look < 2; ++look) { // the second one with what the first remembers
        EXPECT_TRUE(lists(static_cast<uint32_t>(getpid())));
        for (const uint32_t pid : ids)
            EXPECT_FALSE(isKernelThread(pid)) << pid;
    }
    uint32_t threadId = 0;
    std::thread([&] {
        threadId = static_cast<uint32_t>(syscall(SYS_gettid));
        EXPECT_FALSE(processes.open(threadId, error));
        EXPECT_EQ(error, NativeError::invalidParameter);
    }).join();
    for (const uint32_t pid : {zombie.pid(), 0U, 0x7fffffffU}) {
        EXPECT_FALSE(processes.open(pid, error)) << pid;
        EXPECT_EQ(error, NativeError::invalidParameter) << pid;
    }
}

TEST_F(ProcessesTest, AnotherUsersExecutableIsRefusedAndTheOwnerIsTheEffectiveUserEvenIfNothingMayBeDumped) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    Child owner({sleepProgram, "600"});
    Child stranger([&] {
        const bool isOther = setuid(65534) == 0; // which takes the right to be dumped
        const bool isRefused = !processes.open(owner.pid(), error) && error == NativeError::accessDenied;
        raise(SIGSTOP);
        return isOther && isRefused && lists(owner.pid()) ? 0 : 1;
    });
    ASSERT_TRUE(eventually([&] { return stranger.state() == 'T'; }));
    EXPECT_EQ(ownerOf(processes.open(stranger.pid(), error)), "S-1-22-1-65534");
    stranger.signal(SIGCONT);
    EXPECT_EQ(stranger.reap(), 0);
}

TEST_F(ProcessesTest, AGroupLivesOnWithoutItsMainThread) {
    Child child(runWithoutMainThread);
    const auto held = processes.open(child.pid(), error);
    ASSERT_TRUE(held);
    ASSERT_TRUE(eventually([&] { return child.state() == 'Z'; }));
    EXPECT_TRUE(lists(child.pid()));
    LinuxProcesses fresh;
    for (LinuxProcesses* asked : {&processes, &fresh}) {
        const auto process = asked->open(child.pid(), error);
        ASSERT_TRUE(process) << error;
        EXPECT_EQ(pathOf(process), std::filesystem::read_symlink("/proc/self/exe"));
        EXPECT_EQ(codeOf(*asked, process), std::to_string(stillActive));
        EXPECT_EQ(ownerOf(process), "S-1-22-1-" + std::to_string(geteuid()));
    }
    child.signal(SIGTERM);
    child.awaitEnd();
    EXPECT_FALSE(lists(child.pid()));
    EXPECT_EQ(codeOf(processes, held), "5");
}

TEST_P(ExitCodeTest, ASourceTellsWhatItKnowsAndNothingElse) {
    const auto& sources = GetParam().sources;
    if (sources.exitRecords && !ExitRecords::start([](uint32_t, const ExitRecord&) {}))
        GTEST_SKIP() << "the kernel refuses its exit records";
    LinuxProcesses asked(sources);
    using Case = std::tuple<const char*, const char*>;
    for (const auto& [script, code] : {Case{"read x; exit 7", "7"}, Case{"read x; kill -KILL $$", "137"}}) {
        Child child({"/bin/sh", "-c", script});
        const auto process = asked.open(child.pid(), error);
        ASSERT_TRUE(process);
        EXPECT_EQ(codeOf(asked, process), std::to_string(stillActive));
        child.closeInput();
        expectCode(asked, process, child, code);
    }
    Child child(runWithoutMainThread);
    const auto process = asked.open(child.pid(), error);
    ASSERT_TRUE(process && eventually([&] { return child.state() == 'Z'; }));
    EXPECT_EQ(codeOf(asked, process), std::to_string(stillActive));
    child.signal(SIGTERM);
    expectCode(asked, process, child, "5"); // the last thread's
}

INSTANTIATE_TEST_SUITE_P(Sources, ExitCodeTest,
                         testing::Values(SourceCase{{true, false, false}, false, ExitCodes::descriptorsTell()},
                                         SourceCase{{false, true, false}, true, false},
                                         SourceCase{{false, false, true}, true, true},
                                         SourceCase{{false, false, false}, false, false}),
                         [](const auto& tested) {
                             const auto& sources = tested.param.sources;
                             return sources.descriptor    ? "Descriptor"
                                    : sources.statLine    ? "StatLine"
                                    : sources.exitRecords ? "ExitRecords"
                                                          : "None";
                         });

} // namespace Velmor
