#include "programs/runtallyctl/UsageFile.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Velmor {

namespace {
const std::string lead = "1:1000000000:31:0:WORKGROUP:0:pc17:0:amd64:0:Linux Debian";

/// A record with what its writer may vary.
std::string record(const std::string& account, const std::string& exitCode, const std::string& measure,
                   const std::string& directory = "/usr/bin/") {
    return lead + ":0:vim:0:Vim:0:" + directory + ":0:undef:0:" + account + ":0:" + exitCode + "\n" + measure + "\n";
}

UsageFile parse(const std::string& text) {
    std::istringstream input(text);
    return readUsageFile(input);
}
} // namespace

TEST(UsageFile, OddAccountsAndPathsDontMoveTheOtherFields) {
    using Case = std::tuple<std::string, std::string, std::string>;
    for (const auto& [account, directory, user] :
         {Case{"\\\\D\\bob|user id=b7|project id=p1", "/usr/bin/", "\\\\D\\bob"},
          Case{"\\\\D\\a:0:b", "/usr/bin/", "\\\\D\\a:0:b"}, Case{"\\\\D\\a:0", "", "\\\\D\\a:0"}, Case{"", "", ""}}) {
        const UsageFile file = parse(record(account, "137", "0:7", directory));
        ASSERT_EQ(file.entries.size(), 1U) << account;
        EXPECT_EQ(file.entries[0].user, user);
        EXPECT_EQ(file.entries[0].executable, directory + "vim");
        EXPECT_EQ(file.entries[0].exitCode, "137");
        EXPECT_FALSE(file.entries[0].isFirst);
    }
}

TEST(UsageFile, AFileCutOffAnywhereKeepsItsWholeRecordsAndTellsOfTheTornOne) {
    const std::string one = record("\\\\pc17\\bob", "0", "1:300");
    const std::string text = one + one;
    for (size_t size = 0; size <= text.size(); ++size) {
        const UsageFile file = parse(text.substr(0, size));
        EXPECT_EQ(file.entries.size(), size / one.size()) << size;
        EXPECT_EQ(file.mistakes.size(), size % one.size() == 0 ? 0U : 1U) << size;
    }
}

TEST(UsageFile, DamagedRecordsAreNamedByLineAndTheNextOnesAreRead) {
    const std::string good = record("\\\\D\\bob", "0", "1:5");
    const std::string identity = good.substr(0, good.find('\n') + 1);
    using Case = std::tuple<std::string, size_t, std::vector<std::string>>;
    const std::vector<std::string> damaged{"line 1: the record is damaged"};
    for (const auto& [text, entries, mistakes] : {
             Case{"rubbish\nmore\n" + good, 1, {"line 1: no record begins here"}},
             Case{good + identity + good, 2, {"line 3: the record is damaged"}},
             Case{identity + "2:5\n" + good, 1, damaged},
             Case{record("\\\\D\\bob", "soon", "1:5") + good, 1, damaged},
             Case{record("\\\\D\\bob", "99999999999999999999", "1:5") + good, 1, damaged},
             Case{record("\\\\D\\bob", "-1", "1:5") + good, 1, damaged},
             Case{record("\\\\D\\bob", "0", "1:-5") + good, 1, damaged},
             Case{lead + ":0:vim\n1:5\n" + good, 1, damaged},
         }) {
        const UsageFile file = parse(text);
        EXPECT_EQ(file.entries.size(), entries) << text;
        EXPECT_EQ(file.mistakes, mistakes) << text;
    }
}

} // namespace Velmor
