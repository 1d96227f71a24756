#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"
#include "support/ScriptedPlatform.h"
#include "support/Zone.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
std::string zulu(const DateTimeParts& parts) {
    return DateTime(parts).toString(true, false);
}
} // namespace

TEST(DateTimeTest, TextsAreReadAsUtcFields) {
    ScriptedPlatform os;
    os.clock.zoneMinutes = 60;
    const std::pair<const char*, const char*> cases[] = {
        {"2005-06-07T", "2005-06-06T23:00:00Z"},
        {"20050607T0102", "2005-06-07T00:02:00Z"},
        {"20080519T065523Z", "2008-05-19T06:55:23Z"},
        {"2005-06-07T10:00:00+02:00", "2005-06-07T08:00:00Z"},
        {"2005-06-07T10:00:00-0230x", "2005-06-07T12:30:00Z"},
        {"2005-06-07T10:00:00+99", "2005-06-03T07:00:00Z"},
        {"2005-02-31T00:00:00Z", "2005-02-28T00:00:00Z"},
        {"xxxx-01-01T00:00:00Z", "2001-01-01T00:00:00Z"}, // without digits it is the present
        {"2005-13-00T25:61:61Z", "2005-12-01T23:59:59Z"},
        {"1969-07-20T10:00:00Z", "1970-07-20T10:00:00Z"},
        {"2099-12-31T23:59:59Z", "2038-01-19T03:14:07Z"}};
    for (const auto& [text, instant] : cases) {
        EXPECT_EQ(zulu(DateTime::fromString(text)), instant) << text;
        EXPECT_EQ(DateTime(0).toString(false, false), "1970-01-01T01:00:00") << text << " moved the local time";
    }
}

TEST(DateTimeTest, DamagedTextsAreRefused) {
    for (const char* text : {"200", "2005x01", "2005-01-1", "2005T1x", "2005T10:00x00", "2005T10:00:0",
                             "2005T10:00:00x", "2005T10:00:00+01x", "2005T10:00:00+01:00xx", "2005T10:00:00+914:00"})
        EXPECT_THROW(DateTime::fromString(text), TimeException) << text;
}

TEST(DateTimeTest, LocalFieldsTakeTheGreaterOffsetAroundAChange) {
    using Case = std::tuple<const char*, int32_t, int32_t, int32_t, const char*>;
    for (const auto& [name, month, day, hour, instant] : {
             Case{"Europe/Berlin", 3, 30, 1, "2008-03-29T23:00:00Z"}, // read as UTC it lies behind the change
             Case{"Europe/Berlin", 3, 30, 4, "2008-03-30T02:00:00Z"},
             Case{"Europe/Berlin", 10, 26, 1, "2008-10-25T23:00:00Z"},
             Case{"Europe/Berlin", 10, 26, 2, "2008-10-26T01:00:00Z"},
             Case{"Asia/Kathmandu", 5, 19, 12, "2008-05-19T06:15:00Z"},
         }) {
        const Zone zone(name);
        DateTime time(0);
        time.set(2008, month, day, hour, 0, 0, false);
        EXPECT_EQ(time.toString(true, false), instant) << name << " " << month << "-" << day << " " << hour;
    }
}

TEST(DateTimeTest, AlignsToLocalPeriods) {
    using Case = std::tuple<const char*, const char*, int32_t, const char*>;
    for (const auto& [name, from, span, to] : {
             Case{"CET-1", "2008-01-10T12:34:56Z", 86400, "2008-01-09T23:00:00Z"},
             Case{"CET-1", "2008-01-10T13:05:00Z", 43200, "2008-01-10T11:00:00Z"},
             Case{"UTC0", "2008-01-10T12:34:56Z", 10, "2008-01-10T12:34:50Z"},
             Case{"UTC0", "2008-01-10T12:34:56Z", -5, "2008-01-10T12:34:56Z"},
             // Behind the change of March the day began by winter time, an hour more to the east.
             Case{"Europe/Berlin", "2008-03-30T12:00:00Z", 86400, "2008-03-29T23:00:00Z"},
             Case{"Europe/Berlin", "2008-10-26T12:00:00Z", 86400, "2008-10-25T22:00:00Z"},
         }) {
        const Zone zone(name);
        DateTime time(DateTime::fromString(from));
        time.alignTo(TimeSpan(span));
        EXPECT_EQ(time.toString(true, false), to) << name << " " << from << " by " << span;
    }
}

TEST(TimeSpanTest, PrintsAndReadsItsForm) {
    for (const auto& [seconds, text] : {std::pair{90061, "P1D1H1M1S"}, {3600, "P1H"}, {-90, "P-1M30S"}, {0, "P0"}})
        EXPECT_EQ(TimeSpan(seconds).toString(), text);
    const std::pair<const char*, int32_t> cases[] = {{"P0", 0},         {"P", 0},          {"", 0},
                                                     {"PT1H30M", 5400}, {"P1D1D", 86400},  {"P1H2", 3600},
                                                     {"P-1D", -86400},  {"P30M-1H", 5400}, {"PxD7S", 7}};
    for (const auto& [text, seconds] : cases)
        EXPECT_EQ(TimeSpan(TimeSpan::fromString(text)).getSeconds(), seconds) << text;
    for (const char* text : {"1H", "p1H"})
        EXPECT_THROW(TimeSpan::fromString(text), TimeException) << text;
    using Case = std::tuple<int32_t, int32_t, int32_t, int32_t>;
    for (const auto& [hours, minutes, parts, code] :
         {Case{24, 0, 0, TM_HOURS}, Case{-1, 0, 0, TM_HOURS}, Case{0, 60, 0, TM_MINUTES}, Case{0, -1, 0, TM_MINUTES},
          Case{0, 0, 60, TM_SECONDS}, Case{0, 0, -1, TM_SECONDS}}) {
        try {
            TimeSpan().set(1, hours, minutes, parts);
            ADD_FAILURE() << hours << " " << minutes << " " << parts;
        } catch (const TimeException& failure) {
            EXPECT_EQ(failure.getCode(), code);
        }
    }
}

} // namespace Velmor
