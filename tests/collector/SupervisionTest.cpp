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
    std::atomic<int> goodRounds{0};
    std::atomic<bool> holdsRegistry{false};
};
std::unique_ptr<Script> script; // of the test that runs

uint32_t goodWorker(void* argument) {
    auto& record = *static_cast<ThreadRecord*>(argument);
    while (record.report != Report::stop) {
        reportStatus(record.report, false);
        ++script->goodRounds;
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
    ++script->starts;
    while (record.report != Report::stop) {
        reportStatus(record.report, script->isFatal);
        ++script->rounds;
        if (script->takesRegistry.exchange(false))
            script->holdsRegistry = Runtally::checkOutAll();
        if (script->hangs.exchange(false))
            nativePlatform().clock->sleep(3600000);
        if (script->hangsBusy.exchange(false))
            spin();
        if (script->dies.exchange(false))
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
        for (const auto& [record, routine] :
             {std::pair<ThreadRecord*, ThreadRoutine>{&good, goodWorker}, {&odd, oddWorker}})
            record->thread = SmartPointer<ThreadInstance>(new ThreadInstance(routine, record));
        prepareThread("Waiting", 0, waitingWorker);
    }
    static bool hasEnded(ThreadRecord& record) { return record.thread->getStatus() != JobStatus::running; }

    ThreadRecord& good = addThread(ThreadRecord("Good", ThreadRecord::takesPart));
    ThreadRecord& odd = addThread(ThreadRecord("Odd", ThreadRecord::takesPart));
    void run() override {}
    bool configureCollector() override { return true; }
};

class SupervisionTest : public CollectorTest {
protected:
    SupervisionTest() {
        script = std::make_unique<Script>();
        EXPECT_TRUE(agent.startThreads());
        EXPECT_TRUE(eventually([] { return script->starts == 1; }));
    }
    ~SupervisionTest() override { EXPECT_TRUE(agent.stopAndVerify()); }

    /// Lets all workers that can go round.
    void awaitRounds() {
        const int rounds = script->rounds;
        const int good = script->goodRounds;
        EXPECT_TRUE(eventually(
            [&] { return script->goodRounds > good + 1 && (!oddOneGoesRound || script->rounds > rounds + 1); }));
    }
    /// A pass, after they have.
    bool pass() {
        awaitRounds();
        return agent.checkThreads();
    }
    void letOddOneDie() {
        oddOneGoesRound = false;
        script->dies = true;
        EXPECT_TRUE(eventually([&] { return Supervised::hasEnded(agent.odd); }));
    }

    bool oddOneGoesRound = true;
    Supervised agent;
};
} // namespace

TEST_F(SupervisionTest, AHungWorkerIsKilledAndStartedAgainWithinThreePassesAndItsLockIsFree) {
    for (const bool busy : {false, true}) {
        const int starts = script->starts;
        script->takesRegistry = true;
        EXPECT_TRUE(eventually([] { return script->holdsRegistry.load(); }));
        std::atomic<bool>& hangs = busy ? script->hangsBusy : script->hangs;
        hangs = true;
        EXPECT_TRUE(eventually([&] { return !hangs; }));
        oddOneGoesRound = false;
        EXPECT_FALSE(Runtally::checkOutAll());
        bool isFree = false;
        for (int passes = 0; passes < 3 && !isFree; ++passes) {
            EXPECT_TRUE(pass());
            isFree = Runtally::checkOutAll();
        }
        ASSERT_TRUE(isFree);
        Runtally::checkInAll();
        EXPECT_TRUE(eventually([&] { return script->starts == starts + 1; }));
        script->holdsRegistry = false;
        oddOneGoesRound = true;
        EXPECT_TRUE(pass()); // so that the second round begins in the other phase
    }
}

TEST_F(SupervisionTest, WorkersThatAreWellAreLeftAloneAndOneThatDiedIsStartedAgainAtTheNextPass) {
    for (int i = 0; i < 6; ++i)
        EXPECT_TRUE(pass());
    EXPECT_EQ(script->starts, 1);
    letOddOneDie();
    EXPECT_TRUE(agent.checkThreads());
    EXPECT_TRUE(eventually([] { return script->starts == 2; }));
}

TEST_F(SupervisionTest, WithTheQuitFlagNothingIsStartedAgain) {
    programState().quitFlag = 1;
    letOddOneDie();
    EXPECT_TRUE(pass());
    EXPECT_TRUE(pass()) << "an answer that the quit flag was seen is an answer";
    EXPECT_EQ(script->starts, 1);
}

TEST_F(SupervisionTest, AFatalWorkerEndsTheProgramInOrder) {
    const CapturedLog log(1);
    uint32_t message = 0;
    platform().messageQueues->peek(message); // this thread has a queue from now on
    programState().mainThreadId = platform().threads->currentId();
    script->isFatal = true;
    collector.os.clock.onSleep = [this] { awaitRounds(); };
    uint32_t id = 0;
    uint32_t error = 0;
    const uint32_t begin = collector.os.clock.ticks();
    const ThreadHandle monitor = platform().threads->create(statusMonitor, static_cast<Agent*>(&agent), id, error);
    EXPECT_FALSE(platform().messageQueues->wait(message));
    EXPECT_TRUE(programState().quitFlag);
    EXPECT_GT(collector.os.clock.ticks() - begin, 125000U) << "five to begin, and a minute to each of two passes";
    EXPECT_TRUE(log.has("Check: Thread \"Odd\" has reported a fatal error. We are shutting down."));
    EXPECT_TRUE(log.has("statusMonitor is exiting due to failed threads."));
    uint32_t code = stillActive;
    EXPECT_TRUE(eventually([&] { return platform().threads->exitCode(monitor, code, error) && code != stillActive; }));
    collector.os.clock.onSleep = nullptr;
    EXPECT_EQ(script->starts, 1);
}

TEST_F(SupervisionTest, WorkersThatDontListenAreEndedByForce) {
    const CapturedLog log(2);
    script->hangs = true;
    EXPECT_TRUE(eventually([] { return !script->hangs; }));
    agent.stopThreads();
    EXPECT_TRUE(eventually([&] { return Supervised::hasEnded(agent.good); }));
    EXPECT_TRUE(agent.verifyStoppedThreads());
    EXPECT_TRUE(log.has("   2 thread(s) signalled to stop, 1 killed."));
    EXPECT_TRUE(log.has("   2 thread(s) ended nicely, 1 was killed, and 0 failed to end."));
}

} // namespace Velmor
