#include "shared/library/common/configuration/ConfReader.h"
#include "shared/library/logger/LoggerCentre.h"
#include "support/TempDirectory.h"

#include "shared/library/logger/LoggerUnit.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
class ConfTest : public ::testing::Test {
protected:
    ConfTest() { LoggerUnit::setDebugLevel(0); }

    ConfReader& read(const std::string& text) {
        reader.buildDOMTree(directory.write("x.conf", text));
        return reader;
    }
    std::string value(const std::string& key) {
        std::string text = "<none>";
        reader.getString(key, text, false, false);
        return text;
    }

    TempDirectory directory;
    ConfReader reader{SmartPointer<LoggerCentre>()};
};
} // namespace

TEST_F(ConfTest, EntriesNestAndSpread) {
    read("a () = \"\" { b (String) = x { c(String)='y \" z'{} }\n"
         "  d\n(String)\r\n=\n\"e # // f\"\n{\n}\n}\n"
         "a (String) = second { } # unreachable below\n"
         "/* between */ g (String) = h/i#j { } // end\n"
         "k (String) = a//b\n{ }\n"
         "m (String) = = { } n (String) = \"C:\\\\x\\ty\" { }\n");
    // The second of one name is never tried, and each backslash takes the next character along.
    using Case = std::pair<const char*, const char*>;
    for (const auto& [key, text] :
         {Case{"a.b", "x"}, Case{"a.b.c", "y \" z"}, Case{"a.d", "e # // f"}, Case{"a", "<none>"}, Case{"g", "h/i#j"},
          Case{"k", "a"}, Case{"m", "="}, Case{"n", "C:\\x\\y"}})
        EXPECT_EQ(value(key), text) << key;
    EXPECT_EQ(reader.getLastError(), "");
}

TEST_F(ConfTest, MistakesNameTheirLineAndKeepWhatStandsBefore) {
    using Case = std::pair<const char*, int>; // the line 0: no mistake
    for (const auto& [text, line] :
         {Case{"ok (String) = 1 { }\na (String) b { }", 2}, Case{"ok (String) = 1 { }\n\na String", 3},
          Case{"ok (String) = 1 { } a (String = b { }", 1}, Case{"ok (String) = 1 { }\na (String) = b c { }", 2},
          Case{"ok (String) = 1 { }\n\"unclosed", 0}}) {
        read(text);
        EXPECT_EQ(value("ok"), "1") << text;
        const std::string& error = reader.getLastError();
        const bool isTold = error.find("line " + std::to_string(line) + ";") != std::string::npos;
        EXPECT_TRUE(line == 0 ? error.empty() : isTold) << text << ": " << error;
    }
    read("a (String) = b {");
    EXPECT_EQ(value("a"), "b") << "an entry cut off inside its block is kept";
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "a()=b{";
    read(deep);
    EXPECT_NE(reader.getLastError(), "") << "and never a crash";
}

TEST_F(ConfTest, EachTypeHasItsRules) {
    read("t (Bool) = true {} bad (Bool) = True {} i (Integer) = 12x {} w (Integer) = x {}"
         "s (String) = \"  AbC \" {} d (DirName) = \"C:/x//y\" {} e (DirName) = \"\" {} none () = x {}"
         "u (FileName) = \" /etc/\xc3\xa9t\xc3\xa9 \" {} n (FileName) = \" a/b \" {} slash (FileName) = 'a\\\\' {} "
         "star (FileName) = a* {}"
         "badspan (TimeSpan) = 1H {} emptyspan (TimeSpan) = \"\" {}");
    bool flag = false;
    EXPECT_EQ(reader.getBool("t", flag), ConfReader::FOUND);
    for (const auto& [key, code] : {std::pair{"bad", ConfReader::BAD_BOOL},
                                    {"gone", ConfReader::NOT_FOUND},
                                    {"i", ConfReader::OTHER_TYPE},
                                    {"none", ConfReader::NO_TYPE}}) {
        EXPECT_EQ(reader.getBool(key, flag), code) << key;
        EXPECT_TRUE(flag) << "left alone";
    }
    int32_t number = 0;
    EXPECT_TRUE(reader.getInteger("i", number) == ConfReader::FOUND && number == 12);
    EXPECT_TRUE(reader.getInteger("w", number) == ConfReader::FOUND && number == 0);
    std::string text;
    EXPECT_TRUE(reader.getString("s", text, true, true) == ConfReader::FOUND && text == "abc");
    EXPECT_TRUE(reader.getDirName("d", text) == ConfReader::FOUND && text == "C:\\x\\y\\");
    EXPECT_TRUE(reader.getDirName("e", text) == ConfReader::FOUND && text.empty());
    EXPECT_TRUE(reader.getFileName("n", text) == ConfReader::FOUND && text == "a\\b");
    EXPECT_TRUE(reader.getFileName("u", text) == ConfReader::FOUND && text == "\\etc\\\xc3\xa9t\xc3\xa9") << text;
    for (const char* key : {"slash", "star"})
        EXPECT_EQ(reader.getFileName(key, text), ConfReader::BAD_TEXT) << key;
    TimeSpanParts parts;
    EXPECT_EQ(reader.getTimeSpan("badspan", parts), ConfReader::BAD_TEXT);
    EXPECT_TRUE(reader.getTimeSpan("emptyspan", parts) == ConfReader::FOUND && TimeSpan(parts).getSeconds() == 0);
}

TEST_F(ConfTest, ReferencesAreResolvedInTurn) {
    read("a (DirName) = /x {} b (String) = '${a}y' {} c (String) = '${b}${b}' {} d (String) = '${gone}' {}"
         "e (String) = '${b' {} f (String) = '${f}' {} g () = x {} h (String) = '${g}' {} i (String) = '${j}' {}"
         "j (String) = '${i}' {}");
    EXPECT_EQ(value("b"), "/x\\y") << "a directory brings its separator";
    EXPECT_EQ(value("c"), "/x\\y/x\\y");
    std::string text;
    using Case = std::pair<const char*, int32_t>;
    for (const auto& [key, code] :
         {Case{"d", ConfReader::NOT_FOUND}, Case{"e", ConfReader::BAD_REFERENCE}, Case{"f", ConfReader::BAD_REFERENCE},
          Case{"h", ConfReader::NO_TYPE}, Case{"i", ConfReader::BAD_REFERENCE}})
        EXPECT_EQ(reader.getString(key, text, false, false), code) << key;
}

} // namespace Velmor
