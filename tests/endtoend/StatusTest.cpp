// What the real collector tells about itself: to the administrator's tool, to a collector of metrics, to the journal.

#include "RunningCollector.h"

#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace Velmor {

namespace {
using nlohmann::json;

class Status : public testing::Test {
protected:
    /// Its standard error is a file that it is told to be the journal's.
    bool startUnderTheJournal() {
        collector_.stop();
        std::filesystem::remove_all(collector_.directory() / "data");
        return collector_.startBy(
            {"/bin/sh", "-c",
             "exec 2>" + journal() + "; JOURNAL_STREAM=$(stat -c %d:%i " + journal() + ") exec \"$0\" \"$@\"",
             VELMOR_RUNTALLY});
    }
    std::string journal() const { return collector_.directory() / "journal"; }
    std::string metrics() const { return readFile(collector_.directory() / "runtally.prom"); }

    /// The collector's answer, under the tool's exit status.
    json ask(char status) const {
        const std::string text = collector_.control("status --json");
        EXPECT_EQ(text.front(), status) << text;
        return json::parse(text.substr(2), nullptr, false);
    }
    std::vector<std::string> files(const std::string& ending) const {
        std::vector<std::string> list;
        for (const auto& entry : std::filesystem::directory_iterator(collector_.directory() / "data"))
            if (entry.path().string().ends_with(ending))
                list.push_back(entry.path());
        return list;
    }

    RunningCollector collector_{
        "    interval (TimeSpan) = P12H { }\n    metrics-file (FileName) = \"%runtally.prom\" { }\n",
        "process-data () = \"\" { polling (Bool) = true { interval (TimeSpan) = P1S { } } }\n",
        {{"include-exclude", "include datatype=*\n"}}};
};
} // namespace

TEST_F(Status, WhatIsWrittenAndWhatIsLostIsToldToAll) {
    if (geteuid() != 0)
        GTEST_SKIP() << "a collector that lacks rights isn't well";
    ASSERT_TRUE(startUnderTheJournal());
    const auto isWriting = [&] {
        EXPECT_EQ(collector_.control("dump").front(), '0');
        return !files(".data").empty();
    };
    ASSERT_TRUE(eventually(isWriting));
    json status = ask('0');
    EXPECT_TRUE(status["well"]);
    EXPECT_EQ(status["process"], collector_.program().pid());
    const std::string inForce =
        collector_.directory() / "runtally.conf " + (collector_.directory() / "include-exclude");
    EXPECT_EQ(collector_.run("", "sha256sum " + inForce + " | sha256sum").substr(2, 64),
              status["configuration"]["hash"]);
    EXPECT_EQ(status["dataFiles"]["count"], files(".data").size());
    EXPECT_GT(status["tracked"], 0);
    size_t written = 0;
    size_t found = 0;
    EXPECT_TRUE(eventually([&] {    // between the two looks there may be another record
        collector_.control("dump"); // until then some may be in the collector's buffer
        const json answer = ask('0');
        written = answer["records"][0]["written"];
        found = parseRecords(collector_.text("ProcessLog"), true).size();
        return written == found;
    })) << written
        << " told and " << found << " found";
    EXPECT_NE(metrics().find("velmor_runtally_healthy 1\n"), std::string::npos) << metrics();

    for (const std::string& file : files(".data"))
        std::filesystem::remove(file);
    const auto hasLost = [&] { // a record into a file that is gone by then
        for (const std::string& file : files(".tmp"))
            std::filesystem::remove(file);
        collector_.control("dump");
        return collector_.control("status").front() == '1';
    };
    ASSERT_TRUE(eventually(hasLost, std::chrono::milliseconds(500)));
    status = ask('1');
    const size_t lost = status["losses"]["taken_away"]["count"];
    EXPECT_GT(lost, 0U);
    const std::string sentence = status["sentence"];
    EXPECT_NE(sentence.find("lost: " + std::to_string(lost) + " records whose file was taken away"), std::string::npos)
        << sentence;
    EXPECT_EQ(collector_.control("reconfigure").front(), '0');
    const std::string figure = "velmor_runtally_lost_total{cause=\"taken_away\"} " + std::to_string(lost) + "\n";
    EXPECT_TRUE(eventually([&] { return metrics().find(figure) != std::string::npos; })) << metrics();
    collector_.directory().write("include-exclude", "inclde datatype=*\n");
    const std::string refusal = collector_.control("reconfigure");
    EXPECT_EQ(refusal.front(), '1');
    EXPECT_NE(refusal.find("include-exclude"), std::string::npos) << refusal;
    EXPECT_EQ(ask('1')["configuration"]["hash"], status["configuration"]["hash"]) << "the former stays in force";
    collector_.stop();
    EXPECT_NE(readFile(journal()).find("<3>ERROR"), std::string::npos) << readFile(journal());
}

} // namespace Velmor
