#include "shared/library/common/ComparisonPointer.h"
#include "shared/library/common/ParamStream.h"
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

TEST(SmartPointerTest, TheLastHolderEndsTheObject) {
    SmartPointer<Thing> first(new Thing);
    SmartPointer<Thing> second(first);
    first = first; // NOLINT: must do nothing
    first.release();
    EXPECT_TRUE(first.isNull());
    EXPECT_EQ(Thing::alive, 1);
    second = SmartPointer<Thing>();
    EXPECT_EQ(Thing::alive, 0);
}

TEST(SmartPointerTest, DestroyEndsTheObjectForAllHolders) {
    SmartPointer<Thing> first(new Thing);
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
    SmartPointer<Thing> alone(new Thing);
    alone.destroy();
    EXPECT_EQ(Thing::alive, 0);
}

TEST(SmartPointerTest, HoldersOnManyThreadsLoseNoCount) {
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

TEST(ComparisonPointerTest, SetsAreOrderedByThePointee) {
    std::set<SmartComparisonPointer<Thing>> set;
    for (const int number : {3, 1, 2, 1})
        set.insert(SmartComparisonPointer<Thing>(new Thing(number)));
    std::vector<int> order;
    for (const auto& pointer : set)
        order.push_back(pointer->number);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    SmartComparisonPointer<Thing> copy = *set.begin();
    SmartComparisonPointer<Thing> moved = std::move(copy);
    EXPECT_EQ(moved.compare(*set.rbegin()), -1);
    EXPECT_TRUE(moved <= *set.begin() && moved != *set.rbegin());
    moved.release();
    EXPECT_TRUE(moved.isNull());
    set.clear();
    EXPECT_EQ(Thing::alive, 0);
}

TEST(ParamStreamTest, ItemsCarryTheirTypeAndEndOnce) {
    EXPECT_EQ((ParamStream() << "ab" << 7).getText(), "sab\x1an7\x1a");
    EXPECT_EQ((ParamStream() << ""
                             << "x\x1a")
                  .getText(),
              "s\x1asx\x1a");
    EXPECT_EQ((ParamStream() << uint64_t{18446744073709551615U} << -2 << 0.5).getText(),
              "n18446744073709551615\x1an-2\x1an0.5\x1a");
}

} // namespace Velmor
