// The collector on real processes, with kernel events as its source. VELMOR_STOPS says how often it is held up. Needs
// root; without it there is nothing to see here. The soak test judges each record by the system's own accounting.

#include "RunningCollector.h"

#include "support/Environment.h"
#include "support/Eventually.h"
#include "support/TinyProgram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmor {

namespace {
using namespace std::chrono_literals;

constexpr uint32_t nobody = 65534;

/// How often the collector is held up while processes start.
int stops() {
    return fromEnvironment("VELMOR_STOPS", 1);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int mostUnknownCodes = 3; // who is slowed down tenfold may ask too late
#else
constexpr int mostUnknownCodes = 0;
#endif

constexpr const char* logging =
    "process-data () = \"\" { polling (Bool) = false { } events (Bool) = true { native (Bool) = true { } } }\n";

/// Programs whose names nobody else on the machine uses, and the real collector that looks at them.
class Events : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "process events and accounting need root";
        prefix_ = "v" + std::to_string(getpid());
        chmod(directory_.path().c_str(), 0755);
        std::filesystem::copy_file("/bin/true", program("t"));
        std::filesystem::copy_file("/bin/sleep", program("s"));
        std::filesystem::copy_file(VELMOR_BRANCHER, program("h"));
        writeTinyProgram(program("y"));
    }

    std::string program(const std::string& name) const { return directory_ / (prefix_ + name); }

    void startCollector() {
        collector_ = std::make_unique<RunningCollector>(
            "    interval (TimeSpan) = P12H { }\n", logging,
            std::vector<RunningCollector::File>{{"include-exclude", "include datatype=*\n"}}, 1);
    }
    bool awaitTracer() { return collector_->awaitLog("Native event tracer is now running."); }

    std::string log() const { return readFile(collector_->directory() / "RuntallyDebug.log"); }

    /// Starts a program by vfork, and waits for it unless it is to run on.
    pid_t spawn(const std::vector<std::string>& words, uint32_t user = 0, bool wait = true) {
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        const pid_t child = vfork();
        if (child == 0) {
            if (user != 0)
                syscall(SYS_setresuid, user, user, user); // of this thread alone, which vfork stands on
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        if (wait)
            waitpid(child, nullptr, 0);
        return child;
    }

    std::vector<UsageLine> records() const { return collector_->usage(prefix_); }

    /// Records of a user's runs of a program that ended with that code.
    int countOf(const std::string& name, const std::string& code, const std::string& user = "root") const {
        const std::vector<UsageLine> all = records();
        return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const UsageLine& record) {
            return record.executable == prefix_ + name && record.account.ends_with("\\" + user) &&
                   record.exitCode == code;
        }));
    }

    /// What the registry holds, by the slices that reach to a dump of this second.
    std::vector<std::string> tracked() {
        const auto now = static_cast<int32_t>(std::time(nullptr));
        EXPECT_EQ(collector_->control("dump").front(), '0');
        std::vector<std::string> names;
        for (const UsageLine& record : records())
            if (record.exitCode == "none" && record.end() >= now)
                names.push_back(record.executable);
        return names;
    }

    /// Waits until the collector has written what has ended so far: events are taken in order, and these come last.
    bool catchUp() {
        const std::string marker = "marker" + std::to_string(++markers_) + "x"; // one of before tells nothing
        writeTinyProgram(directory_ / marker);
        const auto isWritten = [&] {
            spawn({directory_ / marker}); // one may be lost among many
            return !collector_->usage(marker).empty();
        };
        return eventually(isWritten, 50ms);
    }

    TempDirectory directory_;
    std::string prefix_;
    int markers_ = 0;
    std::unique_ptr<RunningCollector> collector_;
};

} // namespace

namespace {
/// How many messages of the process connector the kernel could not keep for a program.
uint64_t droppedBy(uint32_t program) {
    constexpr uint32_t connector = 11;
    std::ifstream sockets("/proc/net/netlink");
    std::string line;
    std::getline(sockets, line);
    while (std::getline(sockets, line)) {
        std::istringstream fields(line);
        std::string socket, groups, rmem, wmem, dump, locks;
        uint32_t protocol = 0;
        uint32_t pid = 0;
        uint64_t drops = 0;
        fields >> socket >> protocol >> pid >> groups >> rmem >> wmem >> dump >> locks >> drops;
        if (protocol == connector && pid == program)
            return drops;
    }
    return 0;
}

/// What the last message about lost events says that they are in all; 0 without one.
uint64_t reportedLoss(const std::string& log) {
    constexpr std::string_view before = "(2.08.41) (Message not found.) Parameters:";
    const size_t message = log.rfind(before);
    if (message == std::string::npos)
        return 0;
    std::istringstream parameters(log.substr(message + before.size()));
    uint64_t since = 0;
    uint64_t inAll = 0;
    parameters >> since >> inAll;
    return inAll;
}
} // namespace

TEST_F(Events, AfterALossTheRegistryIsRightAgainAndTheLossIsCounted) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    std::vector<pid_t> running{spawn({program("s"), "300"}, 0, false)};
    for (int i = 0; i < stops(); ++i) {
        const pid_t ending = spawn({program("s"), "300"}, 0, false);
        ASSERT_TRUE(catchUp());
        collector_->program().signal(SIGSTOP);
        for (int j = 0; j < 20000; ++j) // more than the buffers hold
            spawn({program("y")});
        kill(ending, SIGKILL);
        waitpid(ending, nullptr, 0);
        running.push_back(spawn({program("s"), "300"}, 0, false));
        collector_->program().signal(SIGCONT);
        EXPECT_TRUE(eventually([&] { return tracked() == std::vector(running.size(), prefix_ + "s"); }, 1100ms));
    }
    EXPECT_TRUE(catchUp());
    const uint64_t judged = droppedBy(collector_->program().pid());
    collector_->stop();
    EXPECT_GT(judged, 0U);
    // To the event; but where the kernel lacks memory for a message it counts that nowhere, and the gap shows all the
    // same.
    EXPECT_GE(reportedLoss(log()), judged);
    EXPECT_LE(reportedLoss(log()), judged + 2);
    EXPECT_GE(countOf("s", "0"), stops()) << "each that ended unseen; also a slice of one bears the code";
    const std::vector<UsageLine> all = records();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [&](const auto& record) { return record.executable == prefix_ + "s" && record.isFirst; }),
              static_cast<ptrdiff_t>(running.size()) + stops())
        << "each once";
    for (const pid_t child : running) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST_F(Events, WithoutTheRightTheStartFailsAndNamesIt) {
    startCollector();
    collector_->stop();
    std::filesystem::remove(collector_->directory() / "RuntallyDebug.log");
    // Root without capabilities still owns its files.
    collector_->run("", "setpriv --bounding-set=-all --regid=65534 --clear-groups " VELMOR_RUNTALLY " -c " +
                            (collector_->directory() / "runtally.conf"));
    const std::string text = log();
    for (const char* part : {"CAP_PERFMON", "CAP_NET_ADMIN", "FATAL"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
}

TEST_F(Events, UnderLoadWhatHasHappenedBeforeTheEndIsWritten) {
    startCollector();
    ASSERT_TRUE(awaitTracer());
    Child spawner([this] {
        for (int i = 0;; ++i) {
            spawn({program("y")}, 0, false);
            while (i % 20 == 0 && waitpid(-1, nullptr, 0) > 0) // until then nobody asks for their codes
                ;
        }
        return 0;
    });
    constexpr int count = 2000;
    for (int i = 0; i < count; ++i) {
        spawn({program("t")}, i % 2 == 0 ? 0 : nobody);
        if (i % 20 == 0) {
            spawn({program("h"), "forks"});
            spawn({program("h"), i % 40 == 0 ? "executes" : "executes-by-thread", program("t")});
        }
    }
    collector_->stop();
    EXPECT_EQ(countOf("t", "0", "nobody"), count / 2);
    EXPECT_EQ(countOf("t", "0"), count / 2 + count / 20);
    for (const char* code :
         {"3", "4", "5", "0"}) // a child and its child, the parent, and one that became another program
        EXPECT_EQ(countOf("h", code), count / 20) << code;
    EXPECT_GT(countOf("y", "7"), 0);
    EXPECT_LE(countOf("y", "0"), mostUnknownCodes) << "a code was invented";
    const std::string text = log();
    EXPECT_NE(text.find("Runtally ended."), std::string::npos);
    EXPECT_EQ(reportedLoss(text), 0U);
    for (const char* failure : {"CRITICAL", "FAILED"})
        EXPECT_EQ(text.find(failure), std::string::npos) << text;
}

} // namespace Velmor
