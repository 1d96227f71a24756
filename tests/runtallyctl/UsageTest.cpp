#include "programs/runtallyctl/UsageFile.h"
#include "programs/runtallyctl/UsageReport.h"

#include "runtallyctl/OutputCapture.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
const std::string lead = "1:1000000000:31:0:WORKGROUP:0:pc17:0:amd64:0:Linux Debian";

/// A record with what its writer may vary.
std::string record(const std::string& account, const std::string& measure, const std::string& application = "Vim",
                   const std::string& exitCode = "0", const std::string& directory = "/usr/bin/") {
    return lead + ":0:vim:0:" + application + ":0:" + directory + ":0:undef:0:" + account + ":0:" + exitCode + "\n" +
           measure + "\n";
}

UsageFile parse(const std::string& text) {
    std::istringstream input(text);
    return readUsageFile(input);
}

struct Printed {
    int status;
    std::string out;
    std::string err;
};

template <typename Print>
Printed printed(Print print, const std::vector<std::string>& paths, bool asJson) {
    const OutputCapture out(std::cout);
    const OutputCapture err(std::cerr);
    const int status = print(paths, asJson);
    return {status, out.text(), err.text()};
}
} // namespace

TEST(UsageFile, OddAccountsAndPathsDontMoveTheOtherFields) {
    using Case = std::tuple<std::string, std::string, std::string>;
    for (const auto& [account, directory, user] :
         {Case{"\\\\D\\bob|user id=b7|project id=p1", "/usr/bin/", "\\\\D\\bob"},
          Case{"\\\\D\\a:0:b", "/usr/bin/", "\\\\D\\a:0:b"}, Case{"\\\\D\\a:0", "", "\\\\D\\a:0"}, Case{"", "", ""}}) {
        const UsageFile file = parse(record(account, "0:7", "Vim", "137", directory));
        ASSERT_EQ(file.entries.size(), 1U) << account;
        EXPECT_EQ(file.entries[0].user, user);
        EXPECT_EQ(file.entries[0].executable, directory + "vim");
        EXPECT_EQ(file.entries[0].exitCode, "137");
        EXPECT_FALSE(file.entries[0].isFirst);
    }
}

TEST(UsageFile, AFileCutOffAnywhereKeepsItsWholeRecordsAndTellsOfTheTornOne) {
    const std::string one = record("\\\\pc17\\bob", "1:300");
    const std::string text = one + one;
    for (size_t size = 0; size <= text.size(); ++size) {
        const UsageFile file = parse(text.substr(0, size));
        EXPECT_EQ(file.entries.size(), size / one.size()) << size;
        EXPECT_EQ(file.mistakes.size(), size % one.size() == 0 ? 0U : 1U) << size;
    }
}

TEST(UsageFile, DamagedRecordsAreNamedByLineAndTheNextOnesAreRead) {
    const std::string good = record("bob", "1:5");
    const std::string identity = good.substr(0, good.find('\n') + 1);
    using Case = std::tuple<std::string, size_t, std::vector<std::string>>;
    const std::vector<std::string> damaged{"line 1: the record is damaged"};
    for (const auto& [text, entries, mistakes] : {
             Case{"rubbish\nmore\n" + good, 1, {"line 1: no record begins here"}},
             Case{good + identity + good, 2, {"line 3: the record is damaged"}},
             Case{identity + "2:5\n" + good, 1, damaged},
             Case{record("bob", "1:5", "Vim", "soon") + good, 1, damaged},
             Case{record("bob", "1:5", "Vim", "99999999999999999999") + good, 1, damaged},
             Case{record("bob", "1:5", "Vim", "-1") + good, 1, damaged},
             Case{record("bob", "1:-5") + good, 1, damaged},
             Case{lead + ":0:vim\n1:5\n" + good, 1, damaged},
         }) {
        const UsageFile file = parse(text);
        EXPECT_EQ(file.entries.size(), entries) << text;
        EXPECT_EQ(file.mistakes, mistakes) << text;
    }
}

TEST(UsageReport, SumsUpSlicesOverFilesAndDirectoriesAndSortsByTime) {
    const TempDirectory directory;
    directory.write("b.data", record("bob", "0:3600") + record("bob", "1:30"));
    directory.write("a.data", record("bob", "1:31") + record("eve", "1:360000", "Shell"));
    directory.write("ProcessLog-1-2-3.make", "not delivered yet");
    const Printed table = printed(printUsage, {directory.path()}, false);
    EXPECT_EQ(table.status, 0) << table.err;
    EXPECT_EQ(table.out, "Application  User  Processes       Time\n"
                         "Shell        eve           1  100:00:00\n"
                         "Vim          bob           2    1:01:01\n");
    const auto json = nlohmann::json::parse(printed(printUsage, {directory / "a.data"}, true).out);
    EXPECT_EQ(json, nlohmann::json::parse(R"([
        {"application": "Shell", "user": "eve", "processes": 1, "seconds": 360000},
        {"application": "Vim", "user": "bob", "processes": 1, "seconds": 31}])"));
}

TEST(UsageReport, WhatCantBeReadIsNamedAndTheRestIsPrinted) {
    const TempDirectory directory;
    const std::string torn = directory.write("torn.data", record("bob", "1:1") + "1:100");
    const Printed usage = printed(printUsage, {directory / "missing", torn}, false);
    EXPECT_EQ(usage.status, 2);
    EXPECT_NE(usage.out.find("Vim"), std::string::npos);
    EXPECT_EQ(usage.err, (directory / "missing") + ": can't be read\n" + torn + ": line 3: the record is cut off\n");
    EXPECT_EQ(printed(printRecords, {torn}, true).status, 2);
}

TEST(UsageReport, NamesNeitherSteerTheTerminalNorBreakColumnsOrJson) {
    const TempDirectory directory;
    const std::string file =
        directory.write("a.data", record("bob", "1:2", "\xC3\x96l\x1B[2J") + record("bob", "1:1", "b\xF6se"));
    const Printed table = printed(printUsage, {file}, false);
    EXPECT_EQ(table.out.find('\x1B'), std::string::npos);
    EXPECT_NE(table.out.find("\xC3\x96l?[2J       bob"), std::string::npos) << table.out;
    const auto json = nlohmann::json::parse(printed(printRecords, {file}, true).out);
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0]["application"], "\xC3\x96l\x1B[2J");
    EXPECT_EQ(json[0]["first"], true);
}

} // namespace Velmor
