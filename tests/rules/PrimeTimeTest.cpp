#include "rules/PrimeTime.h"

#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"
#include "support/Zone.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
constexpr int32_t sundayNight = 1000000000; // 2001-09-09T01:46:40Z
constexpr int32_t hour = 3600;

class PrimeTimeTest : public ::testing::Test {
protected:
    void read(const std::string& text) { ASSERT_TRUE(calendar.readFile(directory.write("primetime", text))); }
    int32_t classOf(int32_t seconds) { return calendar.getClass(DateTime(seconds)); }

    TempDirectory directory;
    PrimeTime calendar;
};

} // namespace

TEST_F(PrimeTimeTest, TheLastLineThatMatchesDecides) {
    const ScriptedPlatform os;
    using Case = std::tuple<const char*, int32_t>;
    for (const auto& [text, timeClass] : {
             Case{"", PrimeTime::UNDEFINED},
             Case{"*:*:*:*:*  Exclude # holidays", PrimeTime::NON_PRIME},
             Case{"*:*:*:*:* 0", PrimeTime::NON_PRIME},
             Case{"*:*:*:*:* # 0", PrimeTime::PRIME},
             Case{"*:*:*:*:*\n*:9:9:*:* exclude", PrimeTime::NON_PRIME},
             Case{"*:9:9:*:* exclude\n*:*:*:*:*", PrimeTime::PRIME},
             Case{"2000-2002:1-9:5,9:0-6:0-1", PrimeTime::PRIME},
             Case{"*:*:*:6:*", PrimeTime::UNDEFINED}, // Sunday is 0
             Case{"*:*:*:*:17-1", PrimeTime::UNDEFINED},
             Case{"*:*:*:*:0,1-5", PrimeTime::PRIME}, // a range, from 0
             Case{"*:*:*:*:1-2-3", PrimeTime::UNDEFINED},
             Case{"*:*:*:*", PrimeTime::UNDEFINED}, // a field is missing
             Case{"\xff\xfe\x01:::::::\n*:*:*:*:*", PrimeTime::PRIME},
         }) {
        read(text);
        EXPECT_EQ(classOf(sundayNight), timeClass) << text;
    }
    EXPECT_FALSE(calendar.readFile(directory / "none"));
    EXPECT_EQ(classOf(sundayNight), PrimeTime::PRIME) << "the calendar stays";
}

TEST_F(PrimeTimeTest, WorkingHoursAreLocalInAnyZoneAndAcrossAChangeOfDaylightSaving) {
    for (const auto& [zone, firstPrime] : {
             std::pair{"UTC", 1774857600}, // Monday 2026-03-30, 8:00
             {"Europe/Oslo", 1774850400},  // the day after the clocks went forward
             {"Europe/Oslo", 1792998000},  // the Monday after they went back
             {"Asia/Kolkata", 1774837800}, // half an hour off
         }) {
        const Zone inForce(zone);
        read("*:*:*:1-5:8-17\n");
        for (const int32_t inside : {0, hour, 10 * hour - 1})
            EXPECT_EQ(classOf(firstPrime + inside), PrimeTime::PRIME) << zone << " " << firstPrime + inside;
        for (const int32_t outside : {-1, 10 * hour, -12 * hour})
            EXPECT_EQ(classOf(firstPrime + outside), PrimeTime::UNDEFINED) << zone << " " << firstPrime + outside;
    }
}

} // namespace Velmor
