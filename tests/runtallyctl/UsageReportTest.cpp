#include "programs/runtallyctl/UsageReport.h"

#include "runtallyctl/OutputCapture.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Velmor {

namespace {
std::string record(const std::string& application, const std::string& user, const std::string& measure) {
    return "1:1000000000:31:0:D:0:pc17:0:amd64:0:Linux:0:x:0:" + application + ":0:/:0:undef:0:" + user + ":0:0\n" +
           measure + "\n";
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

TEST(UsageReport, SumsUpSlicesOverFilesAndDirectoriesAndSortsByTime) {
    const TempDirectory directory;
    directory.write("b.data", record("Vim", "bob", "0:3600") + record("Vim", "bob", "1:30"));
    directory.write("a.data", record("Vim", "bob", "1:31") + record("Shell", "eve", "1:360000"));
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
    const std::string torn = directory.write("torn.data", record("Vim", "bob", "1:1") + "1:100");
    const Printed usage = printed(printUsage, {directory / "missing", torn}, false);
    EXPECT_EQ(usage.status, 2);
    EXPECT_NE(usage.out.find("Vim"), std::string::npos);
    EXPECT_EQ(usage.err, (directory / "missing") + ": can't be read\n" + torn + ": line 3: the record is cut off\n");
    EXPECT_EQ(printed(printRecords, {torn}, true).status, 2);
}

TEST(UsageReport, NamesNeitherSteerTheTerminalNorBreakColumnsOrJson) {
    const TempDirectory directory;
    const std::string file =
        directory.write("a.data", record("\xC3\x96l\x1B[2J", "bob", "1:2") + record("b\xF6se", "bob", "1:1"));
    const Printed table = printed(printUsage, {file}, false);
    EXPECT_EQ(table.out.find('\x1B'), std::string::npos);
    EXPECT_NE(table.out.find("\xC3\x96l?[2J       bob"), std::string::npos) << table.out;
    const auto json = nlohmann::json::parse(printed(printRecords, {file}, true).out);
    ASSERT_EQ(json.size(), 2U);
    EXPECT_EQ(json[0]["application"], "\xC3\x96l\x1B[2J");
    EXPECT_EQ(json[0]["first"], true);
}

} // namespace Velmor
