#include "rules/IncludeExclude.h"

#include "support/ScriptedPlatform.h"
#include "support/TempDirectory.h"

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

} // namespace Velmor
