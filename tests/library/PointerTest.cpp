#include "shared/library/common/pointers/SmartPointer.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace Velmor {

namespace {
struct Thing {
    Thing() { ++alive; }
    virtual ~Thing() { --alive; }
    static inline std::atomic<int> alive{0};
};
} // namespace

TEST(SmartPointerTest, DestroyEndsTheObjectForAllHolders) {
    SmartPointer<Thing> first(new Thing);
    first = first; // NOLINT: must do nothing
    SmartPointer<Thing> second(first);
    SmartPointer<Thing> third(second);
    first.destroy();
    EXPECT_EQ(Thing::alive, 0);
    EXPECT_TRUE(second.isNull() && third.isNull());
    SmartPointer<Thing> late(third); // holders of a destroyed object are counted too
    EXPECT_TRUE(late.isNull());
    second.release();
    third.destroy();
    late.release();
}

TEST(SmartPointerTest, HoldersOnManyThreadsLoseNoCount) {
    {
        const SmartPointer<Thing> shared(new Thing);
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&shared] {
                for (int k = 0; k < 1000; ++k) {
                    const SmartPointer<Thing> copy(shared); // NOLINT: the copy is the point
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(Thing::alive, 1);
    }
    EXPECT_EQ(Thing::alive, 0);
}

} // namespace Velmor
