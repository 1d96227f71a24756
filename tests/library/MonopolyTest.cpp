#include "shared/library/common/system/Monopoly.h"
#include "platform/Platform.h"
#include "platform/Threads.h"

#include <gtest/gtest.h>

#include <thread>

namespace Velmor {

TEST(MonopolyTest, AResetFreesTheSectionOfALostOwnerAndKeepsItsWords) {
    Monopoly monopoly;
    uint32_t lost = 0;
    std::thread([&] {
        monopoly.enforce();
        lost = platform().threads->currentId();
    }).join();
    bool busy = false;
    EXPECT_FALSE(monopoly.tryEnforce(busy));
    monopoly.reset();
    EXPECT_EQ(monopoly.getOwner(), lost);
    EXPECT_EQ(monopoly.getCount(), 1);
    EXPECT_TRUE(monopoly.tryEnforce(busy));
    monopoly.relax();
    EXPECT_EQ(monopoly.getOwner(), 0U);
    EXPECT_EQ(monopoly.getCount(), 0);
}

TEST(MonopolyTest, ThreadsExcludeEachOther) {
    Monopoly monopoly;
    int64_t count = 0; // plain: the lock is what keeps it right
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 5000; ++k) {
                const MonopolyHold hold(monopoly);
                ++count;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, 20000);
}

} // namespace Velmor
