// Supervision with real threads on the scripted clock: time passes only where a test or a sleep lets it.

#include "collector/CollectorFixture.h"

#include "platform/MessageQueues.h"
#include "platform/Threads.h"
#include "support/Eventually.h"

#include <atomic>
#include <unistd.h>

namespace Velmor {

namespace {
void rest() {
    nativePlatform().clock->sleep(1);
}

/// What the workers of a test do, and how often they have been started.
struct Script {
    std::atomic<bool> hangs{false};
    std::atomic<bool> hangsBusy{false};
    std::atomic<bool> takesRegistry{false};
    std::atomic<bool> dies{false};
    std::atomic<bool> isFatal{false};
    std::atomic<int> starts{0};
    std::atomic<int> rounds{0};
    std::atomic<bool> holdsRegistry{false};
};
Script script;

uint32_t goodWorker(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    while (record.report != Report::stop) {
        reportStatus(record.report, false);
        rest();
    }
    return 0;
}

/// Hangs without a call of the platform.
[[noreturn]] void spin() {
    while (true)
        ::usleep(1); // the thread sanitizer hands over signals at calls alone
}

uint32_t oddWorker(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    ++script.starts;
    while (record.report != Report::stop) {
        reportStatus(record.report, script.isFatal);
        ++script.rounds;
        if (script.takesRegistry.exchange(false))
            script.holdsRegistry = Runtally::checkOutAll();
        if (script.hangs.exchange(false))
            nativePlatform().clock->sleep(3600000);
        if (script.hangsBusy.exchange(false))
            spin();
        if (script.dies.exchange(false))
            return 1;
        rest();
    }
    return 0;
}

/// A worker that takes no part in the protocol, as one that waits inside the system.
uint32_t waitingWorker(void*) {
    while (true)
        nativePlatform().clock->sleep(3600000);
}

class Supervised : public Agent {
public:
    Supervised() : Agent("dummy") {
        setThreadLostHook(Runtally::freeLocksOf);
        prepareThread("Good", ThreadRecord::takesPart, goodWorker);
        prepareThread("Odd", ThreadRecord::takesPart, oddWorker);
        prepareThread("Waiting", 0, waitingWorker);
    }
    void run() override {}
    bool configureCollector() override { return true; }
};

class SupervisionTest : public ::testing::Test {
protected:
    SupervisionTest() {
        for (std::atomic<bool>* word : {&script.hangs, &script.hangsBusy, &script.takesRegistry, &script.dies,
                                        &script.isFatal, &script.holdsRegistry})
            *word = false;
        script.starts = 0;
        programState().quitFlag = 0;
        EXPECT_TRUE(agent.startThreads());
        EXPECT_TRUE(eventually([] { return script.starts == 1; }));
    }
    ~SupervisionTest() override {
        EXPECT_TRUE(agent.stopAndVerify());
        programState().quitFlag = 0;
    }

    /// A pass, after all workers that can have gone round.
    bool pass() {
        const int rounds = script.rounds;
        if (oddOneGoesRound)
            eventually([&] { return script.rounds > rounds + 2; });
        for (int i = 0; i < 20; ++i)
            rest();
        return agent.checkThreads();
    }

    bool oddOneGoesRound = true;
    Collector collector;
    Supervised agent;
};
} // namespace

TEST_F(SupervisionTest, WorkersThatAreWellAreLeftAlone) {
    for (int i = 0; i < 6; ++i)
        EXPECT_TRUE(pass());
    EXPECT_EQ(script.starts, 1);
}

TEST_F(SupervisionTest, AHungWorkerIsKilledAndStartedAgainWithinThreePassesAndItsLockIsFree) {
    for (const bool busy : {false, true}) {
        const int starts = script.starts;
        script.takesRegistry = true;
        EXPECT_TRUE(eventually([] { return script.holdsRegistry.load(); }));
        std::atomic<bool>& hangs = busy ? script.hangsBusy : script.hangs;
        hangs = true;
        EXPECT_TRUE(eventually([&] { return !hangs; }));
        oddOneGoesRound = false;
        EXPECT_FALSE(Runtally::checkOutAll());
        int passes = 0;
        while (script.starts == starts && passes < 3) {
            EXPECT_TRUE(pass());
            ++passes;
        }
        EXPECT_EQ(script.starts, starts + 1);
        EXPECT_TRUE(Runtally::checkOutAll());
        Runtally::checkInAll();
        script.holdsRegistry = false;
        oddOneGoesRound = true;
        EXPECT_TRUE(pass()); // so that the second round begins in the other phase
    }
}

TEST_F(SupervisionTest, AWorkerThatDiedIsStartedAgainAtTheNextPass) {
    script.dies = true;
    EXPECT_TRUE(eventually([] { return !script.dies; }));
    for (int i = 0; i < 20; ++i)
        rest();
    EXPECT_TRUE(agent.checkThreads());
    EXPECT_TRUE(eventually([] { return script.starts == 2; }));
}

TEST_F(SupervisionTest, WithTheQuitFlagNothingIsStartedAgain) {
    programState().quitFlag = 1;
    script.dies = true;
    EXPECT_TRUE(eventually([] { return !script.dies; }));
    oddOneGoesRound = false;
    EXPECT_TRUE(pass());
    EXPECT_TRUE(pass()) << "an answer that the quit flag was seen is an answer";
    EXPECT_EQ(script.starts, 1);
}

TEST_F(SupervisionTest, AFatalWorkerEndsTheProgramInOrder) {
    const CapturedLog log(1);
    uint32_t message = 0;
    platform().messageQueues->peek(message); // this thread has a queue from now on
    programState().mainThreadId = platform().threads->currentId();
    script.isFatal = true;
    collector.os.clock.keepStep();
    uint32_t id = 0;
    uint32_t error = 0;
    const ThreadHandle monitor = platform().threads->create(statusMonitor, static_cast<Agent*>(&agent), id, error);
    EXPECT_FALSE(platform().messageQueues->wait(message));
    EXPECT_TRUE(programState().quitFlag);
    EXPECT_TRUE(log.has("Check: Thread \"Odd\" has reported a fatal error. We are shutting down."));
    EXPECT_TRUE(log.has("statusMonitor is exiting due to failed threads."));
    uint32_t code = stillActive;
    EXPECT_TRUE(eventually([&] { return platform().threads->exitCode(monitor, code, error) && code != stillActive; }));
    EXPECT_EQ(script.starts, 1);
}

TEST_F(SupervisionTest, WorkersThatDontListenAreEndedByForce) {
    const CapturedLog log(2);
    script.hangs = true;
    for (int i = 0; i < 20; ++i)
        rest();
    EXPECT_TRUE(agent.stopAndVerify());
    EXPECT_TRUE(log.has("   2 thread(s) signalled to stop, 1 killed."));
    EXPECT_TRUE(log.has("   2 thread(s) ended nicely, 1 was killed, and 0 failed to end."));
}

} // namespace Velmor
