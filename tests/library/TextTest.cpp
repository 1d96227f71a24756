#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"
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

} // namespace Velmor
