#include "shared/library/common/Monopoly.h"
#include "platform/Platform.h"
#include "platform/Threads.h"
#include "support/RuntimeFixture.h"

#include <thread>

namespace Velmor {

namespace {
class MonopolyTest : public RuntimeFixture {};
} // namespace

TEST_F(MonopolyTest, TheUnnamedFormIsRecursiveForItsOwner) {
    Monopoly monopoly;
    EXPECT_TRUE(monopoly.relax()) << "nothing held";
    EXPECT_TRUE(monopoly.enforce());
    EXPECT_TRUE(monopoly.enforce());
    monopoly.relax();
    EXPECT_TRUE(monopoly.isEnforced());
    bool busy = true;
    std::thread([&] { EXPECT_FALSE(monopoly.tryEnforce(busy)); }).join();
    EXPECT_FALSE(busy);
    monopoly.relax();
    EXPECT_FALSE(monopoly.isEnforced());
    EXPECT_EQ(monopoly.getOwner(), 0U);
}

TEST_F(MonopolyTest, AResetFreesTheSectionOfALostOwnerAndKeepsItsWords) {
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
}

TEST_F(MonopolyTest, ThreadsExcludeEachOther) {
    Monopoly monopoly;
    int64_t count = 0; // plain: the lock is what keeps it right
    std::vector<std::thread> threads;
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

TEST_F(MonopolyTest, ANameHasOneHolder) {
    Monopoly first("dir/log\\name");
    Monopoly second("dir_log_name");
    EXPECT_TRUE(first.enforce());
    EXPECT_TRUE(first.enforce()) << "held already";
    EXPECT_FALSE(second.enforce()) << "slashes are underscores";
    bool busy = false;
    EXPECT_FALSE(first.tryEnforce(busy)) << "the named form never tries";
    EXPECT_TRUE(first.relax());
    EXPECT_TRUE(second.enforce());
}

} // namespace Velmor
