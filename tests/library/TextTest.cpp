#include "shared/library/common/StringSearcher.h"
#include "shared/library/common/SystemInfo.h"
#include "shared/library/common/TextUtils.h"
#include "shared/library/common/WhitespaceSearcher.h"
#include "support/ScriptedPlatform.h"

#include <gtest/gtest.h>

namespace Velmor {

TEST(WildcardMatch, StarsAndQuestionMarks) {
    struct Case {
        const char* pattern;
        const char* text;
        bool matches;
    };
    for (const auto& [pattern, text, matches] : {
             Case{"*", "", true},
             Case{"?", "ab", false},
             Case{"?*", "", false},
             Case{"a*c", "abcd", false},
             Case{"A*", "abc", false},
             Case{"*?x", "x", true},
             Case{"*a*b", "xaxbxab", true},
             Case{"", "", false},
             Case{"", "a", false},
             Case{"a*", "", false},
             Case{"*.exe", "a.exe.exe", true},
         })
        EXPECT_EQ(wildcardMatch(pattern, text), matches) << pattern << " on " << text;
    EXPECT_TRUE(wildcardMatchIgnoringCase("A*", "abc"));
    EXPECT_FALSE(wildcardMatch("*a*a*a*a*a*a*a*a*b", std::string(5000, 'a'))) << "and in no time";
}

TEST(TextUtilsTest, FieldsAreTakenApart) {
    std::string text = "a|b|";
    EXPECT_EQ(firstField(text, '|'), "a");
    EXPECT_EQ(firstField(text, '|'), "b");
    EXPECT_EQ(firstField(text, '|'), "");
    std::vector<std::string> list{"old"};
    split("a,,b,", ',', list, 100);
    EXPECT_EQ(list, (std::vector<std::string>{"a", "", "b"}));
    split("a,b,c", ',', list, 2);
    EXPECT_EQ(list, (std::vector<std::string>{"a", "b,c"}));
    split("", ',', list, 2);
    EXPECT_TRUE(list.empty());
    std::vector<int32_t> numbers;
    splitNumbers("1,,x,-4", ',', numbers, 100);
    EXPECT_EQ(numbers, (std::vector<int32_t>{1, 0, 0, -4}));
    EXPECT_TRUE(matchesAt("abc", "bc", 1) && matchesAt("abc", "", 9) && !matchesAt("abc", "cd", 2));
    EXPECT_TRUE(matchesAtIgnoringCase("xREF:", "ref", 1));
}

TEST(StringSearcherTest, BlanksAndPairedQuotesGo) {
    std::string text = "\xff \ta b\r\n";
    EXPECT_EQ(StringSearcher::trim(text), 5U) << "bytes from 128 on are blanks";
    EXPECT_EQ(text, "a b");
    for (const auto& [quoted, plain] :
         {std::pair{"\"a\"", "a"}, {"'a\"", "'a\""}, {"\"", ""}, {"''", ""}, {"a", "a"}}) {
        text = quoted;
        StringSearcher::unquote(text);
        EXPECT_EQ(text, plain);
    }
}

TEST(WhitespaceSearcherTest, QuotedStretchesBelongToTheirToken) {
    const WhitespaceSearcher searcher;
    const std::string text = "ab\"c d\"e  \nf";
    bool significant = false;
    EXPECT_EQ(searcher.nextTokenEnd(text, significant, 0, StringSearcher::npos), 8U);
    EXPECT_TRUE(significant);
    EXPECT_EQ(searcher.nextTokenEnd(text, significant, 8, StringSearcher::npos), 11U);
    EXPECT_FALSE(significant);
    size_t count = 0;
    EXPECT_EQ(searcher.skipBlanks(text, count, 8, StringSearcher::npos), 11U);
    EXPECT_EQ(count, 3U);
}

TEST(ResourceTest, ReferencesAreExpanded) {
    ScriptedPlatform os;
    os.registry.set("base", "/opt");
    os.registry.set("tail", "${base}/x");
    os.registry.set("two", "${tail}:${base}:${gone}");
    os.registry.set("open", "a${base");
    os.registry.set("self", "x${self}");
    os.registry.values["multi"] = {RegistryType::multiText, std::string("a\0b\0\0", 5)};
    os.registry.setNumber("number", 4);
    const std::pair<const char*, std::string> cases[] = {
        {"two", "/opt/x:/opt:${gone}"}, {"open", "a${base"}, {"multi", std::string("a\0b", 3)}};
    for (const auto& [name, expected] : cases) {
        std::string value;
        EXPECT_EQ(getResourceValue(name, value), ResourceResult::success) << name;
        EXPECT_EQ(value, expected) << name;
    }
    std::string value = "kept";
    EXPECT_EQ(getResourceValue("gone", value), ResourceResult::notFound);
    EXPECT_EQ(getResourceValue("number", value), ResourceResult::wrongType);
    EXPECT_EQ(value, "kept");
    EXPECT_EQ(getResourceValue("self", value), ResourceResult::success) << "and it has an end";
}

TEST(StaticInfoTest, NamesFollowTheVersionTables) {
    ScriptedPlatform os;
    struct Case {
        SystemVersion version;
        uint16_t architecture;
        const char* name;
        const char* word;
    };
    const Case cases[] = {
        {{2, 5, 2, true, 0, false, {}}, 9, "Windows XP x64", "amd64"},
        {{2, 5, 2, false, 0, true, {}}, 9, "Windows Server 2003 R2 x64", "amd64"},
        {{2, 5, 2, false, 0x2000, false, {}}, 6, "Windows Storage Server 2003 ia64", "ia64"},
        {{2, 6, 0, true, 0, false, {}}, 9, "Windows Vista x64", "amd64"},
        {{2, 7, 3, false, 0, false, {}}, 77, "Windows 7 3", "error"},
        {{2, 6, 18, false, 0, false, "Linux Debian"}, 65535, "Linux Debian", "unknown"},
    };
    for (const Case& c : cases) {
        os.machine.version = c.version;
        os.machine.architectureNumber = c.architecture;
        std::string domain, computer, architecture, name;
        getStaticInfo(domain, computer, architecture, name);
        EXPECT_EQ(name, c.name);
        EXPECT_EQ(architecture, c.word);
    }
    os.machine.domainName.clear();
    std::string domain = "old", computer, architecture, name;
    getStaticInfo(domain, computer, architecture, name);
    EXPECT_EQ(domain, "N/A");
}

} // namespace Velmor
