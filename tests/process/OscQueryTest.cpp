#include "process/performance/OscQuery.h"

#include "support/ScriptedPlatform.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>

namespace Velmor {

namespace {
constexpr uint32_t pid = 4711;
constexpr uint32_t title = 900; // of the counter that is looked for
constexpr uint32_t baseType = 0x40030403;

/// The two samples of a round, with one process that has a counter and what stands behind its definition.
struct TypeCase {
    const char* name;
    uint32_t type;
    uint32_t size;
    int64_t first;
    int64_t later;
    double value;
    uint32_t nextType = PerfType::rawCount;
    int64_t nextFirst = 0;
    int64_t nextLater = 0;
};

PaperSample sampleOf(const TypeCase& test, bool isLater) {
    PaperObject object{{{PerfTitle::processId}, {title, test.type, test.size}, {901, test.nextType, 4}},
                       {{pid, isLater ? test.later : test.first, isLater ? test.nextLater : test.nextFirst}},
                       true,
                       isLater ? 900 : 500,
                       200};
    return {{object}, 1, isLater ? 3000 : 1000, 1000, isLater ? 40000 : 10000};
}

class OscQueryTest : public ::testing::Test {
protected:
    /// Updates a counter in a round of its own over the blocks given.
    int32_t update(const std::vector<PaperSample>& samples, OscCounter& counter) {
        query = OscOpenQuery(0);
        os.performanceData.blocks.clear();
        for (const PaperSample& sample : samples)
            os.performanceData.blocks.push_back(sample.bytes());
        return updateRound(counter);
    }
    int32_t updateRound(OscCounter& counter) {
        if (OscCollectQueryData(query.get()) != 0)
            return -1;
        const int32_t result = OscUpdateCounter(query.get(), counter);
        OscNextSample(query.get());
        return result;
    }
    static OscCounter counterOf(uint32_t counterId, int32_t mode = GatherMode::last) {
        return {pid, counterId, mode, 0, mode == GatherMode::smallest ? DBL_MAX : 0, 0};
    }

    ScriptedPlatform os;
    std::unique_ptr<OscQuery> query = OscOpenQuery(0);
};
} // namespace

TEST_F(OscQueryTest, EachCounterTypeHasItsArithmetic) {
    for (const TypeCase& test : {
             TypeCase{"raw count, from the first sample", 0x00010000, 4, 42, 99, 42},
             TypeCase{"32 bits have no sign", 0x00010000, 4, 0xffffffff, 0, 4294967295.0},
             TypeCase{"a number of thousandths", 0x00020000, 4, 7500, 0, 7.5},
             TypeCase{"count per second", 0x10410400, 4, 1000, 5000, 2000},
             TypeCase{"percent of time in ticks", 0x20410500, 8, 0, 500, 25},
             TypeCase{"percent of time in 100 ns", 0x20510500, 8, 0, 15000, 50},
             TypeCase{"inverse of it", 0x21510500, 8, 0, 7500, 75},
             TypeCase{"percent of the object's time", 0x20610500, 8, 0, 100, 25},
             TypeCase{"rate over an unknown time base", 0x20710500, 8, 0, 100, 0},
             TypeCase{"queue length", 0x00450400, 4, 0, 4000, 2},
             TypeCase{"raw fraction", 0x20020400, 4, 0, 30, 0.025, baseType, 0, 120},
             TypeCase{"sampled fraction", 0x20C20400, 4, 1000, 3000, 5, baseType, 10, 50},
             TypeCase{"fraction with a difference and no base difference", 0x20420400, 4, 0, 3000, 0, baseType, 0, 50},
             TypeCase{"elapsed time", 0x30240500, 8, 0, 400, 2.5},
         }) {
        OscCounter counter = counterOf(title);
        EXPECT_EQ(update({sampleOf(test, false), sampleOf(test, true)}, counter), 0) << test.name;
        EXPECT_DOUBLE_EQ(counter.value, test.value) << test.name;
        EXPECT_EQ(counter.samples, 1) << test.name;
    }
}

TEST_F(OscQueryTest, TextAndNegativeValuesFailAndLeaveTheCounterAsItWas) {
    for (const TypeCase& test :
         {TypeCase{"text", 0x00000B00, 4, 1, 1, 0}, TypeCase{"negative", 0x00010100, 8, -1, 0, 0},
          TypeCase{"falling", 0x10410500, 8, 5000, 1000, 0}}) {
        OscCounter counter{pid, title, GatherMode::sum, 3, 12, 0};
        EXPECT_EQ(update({sampleOf(test, false), sampleOf(test, true)}, counter), -2) << test.name;
        EXPECT_TRUE(counter.status == 1 && counter.samples == 3 && counter.value == 12) << test.name;
    }
}

TEST_F(OscQueryTest, TheWalkTakesTheFirstMatch) {
    const PaperCounter id{PerfTitle::processId};
    const PaperCounter wanted{title};
    const PaperObject processes{{id, wanted}, {{1, 11}, {pid, 12}, {pid, 13}}};
    const PaperObject alone{{{777}, wanted}, {{5, 14}}, false};
    const PaperObject nameless{{{777}, wanted}, {{5, 15}}};
    const PaperObject other{{id, {777}}, {{pid, 1}}};
    const PaperObject last{{id, wanted}, {{pid, 16}}};
    using Case = std::tuple<const char*, std::vector<PaperObject>, int64_t>; // the value -1: not found
    for (const auto& [name, objects, value] : {
             Case{"the first instance of the id", {processes, last}, 12},
             Case{"an object without instances fits any process", {alone, last}, 14},
             Case{"so is a process without it", {other, last}, 16},
             Case{"an object that tells no ids ends the walk", {nameless, last}, -1},
         }) {
        OscCounter counter = counterOf(title);
        EXPECT_EQ(update({PaperSample{objects}}, counter), value < 0 ? -2 : 0) << name;
        EXPECT_EQ(counter.status, value < 0 ? 1 : 0) << name;
        EXPECT_EQ(counter.value, value < 0 ? 0 : value) << name;
    }
}

TEST_F(OscQueryTest, ModesGatherUpdates) {
    using Case = std::tuple<int32_t, double>;
    for (const auto& [mode, value] : {Case{0, 4}, Case{1, 16}, Case{2, 16}, Case{3, 9}, Case{4, 3}, Case{7, 0}}) {
        OscCounter counter = counterOf(PerfTitle::privateBytes, mode);
        for (const int64_t bytes : {3, 9, 4}) {
            os.performanceData.at(pid, PerfTitle::privateBytes) = bytes;
            EXPECT_EQ(updateRound(counter), 0);
        }
        EXPECT_EQ(counter.value, value) << mode;
        EXPECT_EQ(counter.samples, 3) << mode;
        counter.samples = INT_MAX - 1;
        counter.value = 3.0 * INT_MAX;
        os.performanceData.at(pid, PerfTitle::privateBytes) = 0;
        EXPECT_EQ(updateRound(counter), 0);
        EXPECT_EQ(counter.samples, 1) << mode << " begins anew before the number overflows";
    }
}

TEST_F(OscQueryTest, RoundsShareTheirSamples) {
    OscCounter memory = counterOf(PerfTitle::privateBytes);
    OscCounter cpu = counterOf(PerfTitle::processorTime);
    os.performanceData.at(pid, PerfTitle::processorTime) = 0;
    const uint32_t begin = os.clock.ticks();
    EXPECT_EQ(updateRound(memory), 0);
    EXPECT_EQ(os.clock.ticks(), begin) << "a plain number waits for nothing";
    EXPECT_EQ(updateRound(cpu), 0);
    EXPECT_EQ(os.performanceData.samples, 3U);
    os.clock.advance(10);
    os.performanceData.at(pid, PerfTitle::processorTime) = 25100000; // 2.51 s, of 10.05 s since the sample before
    EXPECT_EQ(updateRound(cpu), 0);
    EXPECT_EQ(os.performanceData.samples, 4U) << "the later sample of a round is the first of the next";
    EXPECT_NEAR(cpu.value, 100 * 2.51 / 10.05, 1e-9);
}

TEST_F(OscQueryTest, AProcessThatGoesOrComesBetweenTheSamples) {
    const TypeCase test{"", PerfType::bulkCount, 8, 1000, 5000, 2000};
    const PaperSample empty{{{{{PerfTitle::processId}, {title}}, {{1, 1}}}}};
    OscCounter gone = counterOf(title, GatherMode::sum);
    EXPECT_EQ(update({sampleOf(test, false), empty}, gone), 0) << "gone, it counts as 0";
    EXPECT_EQ(gone.samples, 1);
    OscCounter fresh = counterOf(title);
    EXPECT_EQ(update({empty, sampleOf(test, true)}, fresh), -2);
    query = OscOpenQuery(0);
    os.performanceData.blocks = {sampleOf(test, false).bytes(), "no block"};
    OscCounter lone = counterOf(title);
    EXPECT_EQ(updateRound(lone), -2) << "without a later sample";
    EXPECT_EQ(lone.status, 1);
}

TEST_F(OscQueryTest, ABufferGrowsUntilTheSampleFitsAndStartsSmallAgain) {
    PaperObject object{{{PerfTitle::processId}, {title}}, {}};
    for (int64_t i = 0; i < 1000; ++i)
        object.instances.push_back({i, i});
    for (int i = 0; i < 2; ++i) {
        os.performanceData.asked.clear();
        OscCounter counter{999, title};
        EXPECT_EQ(update({PaperSample{{object}}}, counter), 0);
        EXPECT_EQ(counter.value, 999);
        ASSERT_GT(os.performanceData.asked.size(), 2U);
        EXPECT_EQ(os.performanceData.asked[0], 25600U);
        EXPECT_EQ(os.performanceData.asked[1], 25600U + 2048U);
    }
}

} // namespace Velmor
