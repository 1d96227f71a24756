#include "shared/library/common/ComparisonPointer.h"
#include "shared/library/common/SmartPointer.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace Velmor {

namespace {
struct Thing {
    explicit Thing(int n = 0) : number(n) { ++alive; }
    virtual ~Thing() { --alive; }
    int orderingField() const { return number; }
    int number;
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

TEST(ComparisonPointerTest, SetsAreOrderedByThePointee) {
    std::set<SmartComparisonPointer<Thing>> set;
    for (const int number : {3, 1, 2, 1})
        set.insert(SmartComparisonPointer<Thing>(new Thing(number)));
    std::vector<int> order;
    for (const auto& pointer : set)
        order.push_back(pointer->number);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    set.clear();
    EXPECT_EQ(Thing::alive, 0);
}

} // namespace Velmor
