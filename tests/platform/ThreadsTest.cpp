#include "platform/linux/threads/LinuxThreads.h"

#include "platform/Errors.h"
#include "platform/linux/family/LinuxNamedLocks.h"
#include "platform/linux/machine/LinuxClock.h"
#include "platform/linux/threads/LinuxCriticalSections.h"
#include "platform/linux/threads/LinuxMessageQueues.h"
#include "support/Eventually.h"
#include "support/RuntimeFixture.h"

#include <atomic>

namespace Velmor {

namespace {
LinuxThreads threads;
LinuxClock systemClock;
LinuxNamedLocks namedLocks;
LinuxMessageQueues messageQueues;
LinuxCriticalSections criticalSections;
std::unique_ptr<CriticalSection> section;
std::atomic<uint32_t> rounds{0};
std::atomic<bool> went{false}; // the thread was let past the place at which it was to stop

uint32_t allocatingThread(void*) {
    for (size_t size = 1;; size = size % 5000 + 7) {
        const std::string text(size, 'x');
        rounds.fetch_add(text.empty() ? 0 : 1, std::memory_order_relaxed);
        for (int i = 0; i < 200; ++i) // code of its own, in which it can be stopped, also between a sanitizer's
            asm volatile("");
    }
}

/// A thread that waits for good, in the way that its argument is.
uint32_t waitingThread(void* way) {
    rounds.fetch_add(1);
    (*static_cast<void (**)()>(way))();
    went = true;
    return 0;
}

class ThreadsTest : public RuntimeFixture {
protected:
    ThreadsTest() {
        rounds = 0;
        went = false;
        section = criticalSections.create();
    }

    void start(ThreadRoutine routine, void* argument = nullptr) {
        thread = threads.create(routine, argument, id, error);
        ASSERT_TRUE(thread);
    }
    bool isRunning() { return rounds > 0; }
    uint32_t exitCode() {
        uint32_t code = 0;
        return threads.exitCode(thread, code, error) ? code : 0;
    }
    /// Whether the count goes on; a thread that runs needs far less than the time allowed.
    static bool countsOn() {
        const uint32_t before = rounds;
        const uint32_t begin = systemClock.ticks();
        while (rounds == before && systemClock.ticks() - begin < 100)
            systemClock.sleep(1);
        return rounds != before;
    }

    ThreadHandle thread;
    uint32_t id = 0;
    uint32_t error = 0;
};
} // namespace

TEST_F(ThreadsTest, AThreadRunsUnderTheIdThatItsMakerGotAndLeavesItsCode) {
    start([](void*) -> uint32_t { return threads.currentId(); });
    EXPECT_TRUE(eventually([&] { return exitCode() == id; }));
    EXPECT_TRUE(threads.terminate(thread, 9, error));
    EXPECT_EQ(exitCode(), id) << "one that ended by itself keeps its code";
    start([](void*) -> uint32_t { throw std::runtime_error("lost"); });
    EXPECT_TRUE(eventually([&] { return exitCode() == 0xE06D7363; })) << "an exception ends its thread only";
}

TEST_F(ThreadsTest, AWaitIsEndedWithinTheGrace) {
    section->enter(); // not given back
    const auto threadCount = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
    [[maybe_unused]] const auto before = threadCount();
    void (*const ways[])() = {[] { systemClock.sleep(60000); }, [] { section->enter(); },
                              [] {
                                  uint32_t message = 0;
                                  messageQueues.wait(message);
                              }};
    for (const auto& way : ways) {
        rounds = 0;
        start(waitingThread, const_cast<void (**)()>(&way));
        ASSERT_TRUE(eventually([&] { return isRunning(); }));
        EXPECT_TRUE(threads.terminate(thread, 5, error));
        EXPECT_EQ(exitCode(), 5U);
    }
    section->renew();
    EXPECT_FALSE(went);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_TRUE(eventually([&] { return threadCount() == before; })) << "who holds nothing leaves the process";
#endif
}

TEST_F(ThreadsTest, AThreadEndedAmongAllocationsLeavesTheAllocatorUsable) {
    std::vector<ThreadHandle> crowd; // who wait for each other's allocations
    for (int i = 0; i < 4; ++i) {
        rounds = 0;
        start(allocatingThread);
        ASSERT_TRUE(eventually([&] { return isRunning(); }));
        crowd.push_back(std::move(thread));
    }
    for (const ThreadHandle& one : crowd) {
        ASSERT_TRUE(threads.terminate(one, 1, error));
        std::vector<std::string> texts;
        for (size_t size = 1; size < 5000; size += 7)
            texts.emplace_back(size, 'y');
        EXPECT_EQ(texts.back().back(), 'y');
    }
    EXPECT_FALSE(countsOn());
}

TEST_F(ThreadsTest, AThreadThatHoldsANamedLockMayLetGoFirst) {
    start([](void*) -> uint32_t {
        uint32_t failure = 0;
        {
            const auto lock = namedLocks.create("held", NamedLockAccess::own, failure);
            rounds.fetch_add(1);
            systemClock.sleep(300);
        }
        systemClock.sleep(60000);
        went = true;
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return isRunning(); }));
    ASSERT_FALSE(namedLocks.create("held", NamedLockAccess::own, error));
    EXPECT_TRUE(threads.terminate(thread, 5, error));
    EXPECT_TRUE(namedLocks.create("held", NamedLockAccess::own, error)) << error;
    EXPECT_FALSE(went);
}

TEST_F(ThreadsTest, MessagesArriveInOrderAndOnlyWhereThereIsAQueue) {
    EXPECT_FALSE(messageQueues.post(threads.currentId(), 5)) << "this thread has no queue yet";
    uint32_t message = 0;
    EXPECT_FALSE(messageQueues.peek(message));
    for (const uint32_t number : {5U, 6U, WindowMessage::quit})
        EXPECT_TRUE(messageQueues.post(threads.currentId(), number));
    EXPECT_TRUE(messageQueues.peek(message) && message == 5);
    EXPECT_TRUE(messageQueues.wait(message) && message == 6);
    EXPECT_FALSE(messageQueues.wait(message));
    start([](void*) -> uint32_t {
        uint32_t received = 0;
        return messageQueues.wait(received) ? received : 0;
    });
    EXPECT_TRUE(eventually([&] { return messageQueues.post(id, 77); }));
    EXPECT_TRUE(eventually([&] { return exitCode() == 77; }));
    EXPECT_TRUE(eventually([&] { return !messageQueues.post(id, 78); })) << "its queue went with the thread";
}

} // namespace Velmor
