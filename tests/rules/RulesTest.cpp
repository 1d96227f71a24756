#include "rules/IncludeExclude.h"
#include "rules/ModPollFilterChecker.h"
#include "rules/PrimeTime.h"
#include "rules/ProcessRulesChecker.h"

#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"
#include "support/Zone.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
class RulesTest : public ::testing::Test {
protected:
    /// The error of loading a text of rules; empty if it loads.
    std::string load(const std::string& text) {
        std::string error;
        rules.clear();
        const bool loaded = rules.load(directory.write("rules", text), error);
        EXPECT_EQ(loaded, error.empty());
        return error;
    }

    bool includes(const RuleFacts& facts) { return rules.isIncluded(facts); }

    /// A record of the user bob, of half a minute.
    static RuleFacts facts() {
        RuleFacts result(RuleKey::datatype, "runtally");
        result.setText(RuleKey::user, "bob");
        result.setText(RuleKey::exe, "c:\\a b\\cad.exe");
        result.setText(RuleKey::app, "cad");
        result.setNumber(RuleKey::duration, 30);
        return result;
    }

    RulesTest() { os.machine.word = "sunos"; }

    ScriptedPlatform os;
    TempDirectory directory;
    IncludeExclude rules;
};

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

TEST_F(RulesTest, ARuleHoldsIfAllOfItsConditionsDo) {
    using Case = std::tuple<const char*, bool>;
    for (const auto& [text, included] : {
             Case{"", false}, Case{"include user=bo? app=c*", true}, Case{"include user=Bob", false},
             Case{"include group=*", false}, // no such fact
             Case{"exclude user=bob\ninclude user=*", false}, Case{"include user=*\nexclude user=bob", true},
             Case{"include x", true}, // no condition at all
             Case{"include\tuser=bob\tapp=cad", true}, Case{"include exe=c:\\a\" b\"\\cad.exe", true},
             Case{"include duration=30", true}, Case{"include duration=-30", false},
             Case{"include\n{\n}\n", false}, // an empty block leaves no rule
             Case{"include\n{\n  app = \"cad\"\n# a comment\n duration=30\n}\n", true},
             Case{"include\n{\nuser\n}\n", false}, // all key, and an empty pattern
             Case{"include os=\"Windows XP\" platform=sun* domain=WORK* arch=i386", true},
             Case{"include platform=windows", false}, // of a fleet's other machines
         }) {
        EXPECT_EQ(load(text), "");
        EXPECT_EQ(includes(facts()), included) << text;
    }
}

TEST_F(RulesTest, ABlockOfReferencesHoldsIfOneOfItsConditionsDoes) {
    using Case = std::tuple<const char*, bool>;
    for (const auto& [text, included] : {
             Case{"REF:office\n{\nhost=pc*\nhost=lab*\n}\ninclude ref=office user=bob", true},
             Case{"ref:office\n{\nhost=lab*\nhost=pc*\n}\ninclude ref=office", true}, // one of them is enough
             Case{"ref:a\n{\nref=b\n}\nref:b\n{\nuser=bob\n}\ninclude ref=a", true},
             Case{"ref:a\n{\nref=b\n}\nref:b\n{\nref=a\n}\ninclude ref=a\ninclude user=bob", true},
             Case{"ref:a\n{\nref=a\nuser=bob\n}\ninclude ref=a", true},                    // cut off, and then bob
             Case{"ref:a\n{\nuser=bob\n}\nref:a\n{\nuser=alice\n}\ninclude ref=a", false}, // the later one
             Case{"ref:a\n{\nbefore=1999\nuser=bob\n}\ninclude ref=a", false},             // times act as "and"
         }) {
        EXPECT_EQ(load(text), "");
        EXPECT_EQ(includes(facts()), included) << text;
    }
}

TEST_F(RulesTest, TimesAreThoseOfTheTestInLocalTime) {
    os.clock.zoneMinutes = 120; // Sunday, 2001-09-09 03:46:40 local, still 01:46:40 in Greenwich
    using Case = std::tuple<const char*, bool>;
    for (const auto& [condition, holds] : {
             Case{"after-tod=03:46:39", true},
             Case{"after-tod=3:47", false},
             Case{"after-tod=", true}, // midnight
             Case{"before=2001-09-09T03:46:41", true},
         }) {
        EXPECT_EQ(load(std::string("include ") + condition), "");
        EXPECT_EQ(includes(facts()), holds) << condition;
    }
}

TEST_F(RulesTest, MistakesNameTheWordAndItsLine) {
    using Case = std::tuple<const char*, const char*>;
    for (const auto& [text, error] : {
             Case{"# x\nincludes user=a", "Invalid status \"includes\" in line 2"},
             Case{"include user=a  exe=b", "Invalid key \" exe\" in line 1"},
             Case{"include\n{\nfoo = 1\n}", "Invalid key \"foo\" in line 3"},
             Case{"include wdays=Mon", "Invalid week day \"Mon\" in line 1"},
             Case{"include after-tod=8.30", "Invalid time-of-day value \"8.30\" in line 1"},
             Case{"include\nuser=a\n", "Missing '{' in line 2"},
             Case{"exclude\n{\nuser=a", "Missing '}' in/after line 3"},
         })
        EXPECT_EQ(load(text), error) << text;
    std::string error;
    EXPECT_FALSE(rules.load(directory / "none", error));
    EXPECT_EQ(error, "File not accessible");
    EXPECT_NE(load("include user=bob\nnonsense\n"), "");
    EXPECT_TRUE(includes(facts())) << "what was read before stays";
}

TEST_F(RulesTest, TheDecidingLineStaysUntilAnotherRuleDecides) {
    ASSERT_EQ(load("\n# x\nexclude\n{\nuser=alice\n}\ninclude user=bob\n"), "");
    EXPECT_TRUE(includes(facts()));
    EXPECT_EQ(rules.getMatchedLine(), 7);
    EXPECT_FALSE(includes(RuleFacts(RuleKey::user, "carol")));
    EXPECT_EQ(rules.getMatchedLine(), 7);
    EXPECT_FALSE(includes(RuleFacts(RuleKey::user, "alice")));
    EXPECT_EQ(rules.getMatchedLine(), 3);
}

TEST_F(RulesTest, EscapesCountInsideQuotesOnly) {
    ASSERT_EQ(load(R"(include app="a\"b\tc\xd" user=b\nob)"), "");
    RuleFacts record(RuleKey::app, "a\"b\tc\\xd");
    record.setText(RuleKey::user, "b\\nob");
    EXPECT_TRUE(includes(record));
}

TEST(ProcessRulesTest, TheFirstBlockThatKnowsTheNameOnThisHostDecides) {
    const TempDirectory directory;
    using Case = std::tuple<const char*, const char*, bool, bool>;
    for (const auto& [text, name, monitored, wanted] : {
             Case{"+ host=*\nNOTEPAD.EXE", "notepad.exe", true, true},
             Case{"+ host=PC1? # office\n  cal*  \r\n", "Calc.exe", true, true},
             Case{"+ host=web*\ncal*", "calc.exe", false, false},
             Case{"+\ncal*", "calc.exe", false, false}, // no host fits an empty pattern
             Case{"- host=*\ntmp*\n+ host=*\n*", "tmp1.exe", false, false},
             Case{"+ host=*\n*\n- host=*\ntmp*", "tmp1.exe", true, true},
             Case{"- host=web*\ncal*", "calc.exe", true, true},     // "-" turns around on other hosts
             Case{"cal*", "calc.exe", true, true},                  // ahead of the first opening line
             Case{"- host=*\n+ host=*\n*", "calc.exe", true, true}, // no names, no block
             Case{"+ host=*\n", "calc.exe", false, true},
         }) {
        const std::string file = directory.write("rules", text);
        ProcessRulesChecker rules;
        ModPollFilterChecker filter;
        ASSERT_TRUE(rules.readFile(file) && filter.readFile(file)) << text;
        EXPECT_EQ(rules.isMonitored("pc17", name), monitored) << text;
        EXPECT_EQ(filter.isWanted("pc17", name), wanted) << text;
    }
}

TEST(ProcessRulesTest, DirectoriesPlayNoPartForProcessesAndAreComparedForModules) {
    const TempDirectory directory;
    const std::string file = directory.write("rules", "+ host=*\nnotepad.exe\nc:\\tools\\*");
    ProcessRulesChecker rules;
    ModPollFilterChecker filter;
    ASSERT_TRUE(rules.readFile(file) && filter.readFile(file));
    EXPECT_TRUE(rules.isMonitored("pc17", "c:\\windows\\notepad.exe"));
    EXPECT_FALSE(rules.isMonitored("pc17", "c:\\tools\\hammer.exe"));
    EXPECT_FALSE(filter.isWanted("pc17", "c:\\windows\\notepad.exe"));
    EXPECT_TRUE(filter.isWanted("pc17", "c:\\tools\\hammer.dll"));
}

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
