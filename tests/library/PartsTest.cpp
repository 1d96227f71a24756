#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/text/Tokenizer.h"
#include "shared/library/common/text/WhitespaceSearcher.h"
#include "support/ScriptedPlatform.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace Velmor {

namespace {
struct Thing {
    Thing() { ++alive; }
    virtual ~Thing() { --alive; }
    static inline int alive = 0;
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

TEST(MonopolyTest, OneThatChangesHandsIsWaitedForAndOneThatIsKeptIsBegunAnew) {
    ScriptedPlatform os;
    Monopoly monopoly;
    std::jthread holder;
    const auto take = [&] {
        std::promise<void> taken;
        holder = std::jthread([&](const std::stop_token& end) {
            monopoly.enforce();
            taken.set_value();
            while (!end.stop_requested())
                std::this_thread::yield();
            monopoly.relax();
        });
        taken.get_future().wait();
    };
    take();
    int hands = 1;
    uint32_t since = os.clock.ticks();
    os.clock.onSleep = [&] {
        if (hands == 4 || os.clock.ticks() - since < 4000)
            return;
        holder = {};
        take();
        since = os.clock.ticks();
        ++hands;
    };
    {
        const TimedMonopolyHold hold(monopoly);
        EXPECT_EQ(hands, 4);
        EXPECT_NEAR(os.clock.ticks() - since, 5000, 500);
        EXPECT_EQ(monopoly.getCount(), 1);
        holder = {};
        std::thread([&] {
            bool busy = false;
            EXPECT_FALSE(monopoly.tryEnforce(busy)) << "the former holder's leave is none";
        }).join();
    }
    EXPECT_EQ(monopoly.getOwner(), 0U);
}

TEST(ExceptionTest, TextsNameCodeDetailAndWhereItPassed) {
    FileException failure(FL_READ, "detail", "/a/b/Inner.cpp", 12);
    failure.addPosition("Outer.cpp", 34);
    failure.addPosition("", 56);
    std::string line;
    failure.describe(line);
    EXPECT_TRUE(line.starts_with("File: ") && line.ends_with(" (Code: 47." + std::to_string(FL_READ) + ")")) << line;
    EXPECT_EQ(failure.getFullDescription(), line + "\r\n  >  (detail)\r\n  >  Inner.(12) - Outer.(34)");
    EXPECT_EQ(Exception(7).getFullDescription(), "Exception: Unknown error (Code: 50.7)");
}

TEST(TokenizerTest, BlanksSeparateAndQuotesHoldTogether) {
    const WhitespaceSearcher searcher;
    Tokenizer tokens(" a \"b c\"d\xe9", &searcher);
    std::string text;
    for (Token token; tokens.nextToken(token);)
        text +=
            (token.isSignificant() ? "[" : "(") + token.getText() + "@" + std::to_string(tokens.getPrevious()) + " ";
    EXPECT_EQ(text, "( @0 [a@1 ( @2 [\"b c\"d@3 (\xe9@9 ");
    Token token;
    EXPECT_FALSE(Tokenizer("x", nullptr).nextToken(token));
    size_t count = 0;
    EXPECT_EQ(searcher.skipBlanks("a  bc", count, 1, StringSearcher::npos), 3U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(searcher.skipBlanks("a  bc", count, 1, 2), StringSearcher::npos);
    bool significant = false;
    EXPECT_EQ(searcher.nextTokenEnd("a  bcd", significant, 3, 2), 5U);
    EXPECT_EQ(searcher.nextTokenEnd("a", significant, 1, 1), StringSearcher::npos);
}

TEST(WildcardMatch, StarsAndQuestionMarks) {
    using Case = std::tuple<const char*, const char*, bool>;
    for (const auto& [pattern, text, matches] :
         {Case{"*", "", true}, Case{"?", "ab", false}, Case{"?*", "", false}, Case{"a*c", "abcd", false},
          Case{"A*", "abc", false}, Case{"*?x", "x", true}, Case{"*a*b", "xaxbxab", true}, Case{"", "", false},
          Case{"", "a", false}, Case{"a*", "", false}, Case{"*.exe", "a.exe.exe", true}})
        EXPECT_EQ(wildcardMatch(pattern, text), matches) << pattern << " on " << text;
    EXPECT_TRUE(wildcardMatchIgnoringCase("A*", "abc"));
    EXPECT_FALSE(wildcardMatch("*a*a*a*a*a*a*a*a*b", std::string(5000, 'a'))) << "and in no time";
}

TEST(StaticInfoTest, SystemsAreNamedByTheirNumbers) {
    ScriptedPlatform os;
    constexpr uint16_t ia64 = 6;
    constexpr uint16_t amd64 = 9;
    using Case = std::tuple<uint32_t, uint32_t, bool, uint16_t, const char*>;
    for (const auto& [major, minor, isWorkstation, architecture, name] :
         {Case{4, 0, true, 0, "NT 4.0"}, Case{5, 0, true, 0, "2000"}, Case{5, 1, true, 0, "XP"},
          Case{5, 2, true, amd64, "XP x64"}, Case{5, 2, true, 0, "Server 2003"},
          Case{5, 2, false, ia64, "Server 2003 ia64"}, Case{5, 2, false, amd64, "Server 2003 x64"},
          Case{6, 0, true, amd64, "Vista x64"}, Case{6, 0, false, 0, "Server 2008"}, Case{7, 1, true, amd64, "7 1"}}) {
        os.machine.version = {2, major, minor, isWorkstation, 0, false, {}};
        os.machine.architectureNumber = architecture;
        std::string domain, computer, word, system;
        getStaticInfo(domain, computer, word, system);
        EXPECT_EQ(system, std::string("Windows ") + name);
        EXPECT_EQ(word, architecture == amd64 ? "amd64" : architecture == ia64 ? "ia64" : "i386");
    }
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
