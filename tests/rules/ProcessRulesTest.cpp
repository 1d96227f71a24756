#include "rules/ModPollFilterChecker.h"
#include "rules/ProcessRulesChecker.h"

#include "support/TempDirectory.h"

#include <gtest/gtest.h>

namespace Velmor {

namespace {
using RulesCase = std::tuple<const char*, const char*, bool, bool>;

class ProcessRulesTest : public ::testing::Test {
protected:
    TempDirectory directory;
};
} // namespace

TEST_F(ProcessRulesTest, TheFirstBlockThatKnowsTheNameOnThisHostDecides) {
    for (const auto& [text, name, monitored, wanted] : {
             RulesCase{"+ host=*\nNOTEPAD.EXE", "notepad.exe", true, true},
             RulesCase{"+ host=PC1? # office\n  cal*  \r\n", "Calc.exe", true, true},
             RulesCase{"+ host=web*\ncal*", "calc.exe", false, false},
             RulesCase{"+\ncal*", "calc.exe", false, false}, // no host fits an empty pattern
             RulesCase{"- host=*\ntmp*\n+ host=*\n*", "tmp1.exe", false, false},
             RulesCase{"+ host=*\n*\n- host=*\ntmp*", "tmp1.exe", true, true},
             RulesCase{"- host=web*\ncal*", "calc.exe", true, true},     // "-" turns around on other hosts
             RulesCase{"cal*", "calc.exe", true, true},                  // ahead of the first opening line
             RulesCase{"- host=*\n+ host=*\n*", "calc.exe", true, true}, // no names, no block
             RulesCase{"+ host=*\n", "calc.exe", false, true},
         }) {
        const std::string file = directory.write("rules", text);
        ProcessRulesChecker rules;
        ModPollFilterChecker filter;
        ASSERT_TRUE(rules.readFile(file) && filter.readFile(file)) << text;
        EXPECT_EQ(rules.isMonitored("pc17", name), monitored) << text;
        EXPECT_EQ(filter.isWanted("pc17", name), wanted) << text;
    }
}

TEST_F(ProcessRulesTest, DirectoriesPlayNoPartForProcessesAndAreComparedForModules) {
    const std::string file = directory.write("rules", "+ host=*\nnotepad.exe\nc:\\tools\\*");
    ProcessRulesChecker rules;
    ModPollFilterChecker filter;
    ASSERT_TRUE(rules.readFile(file) && filter.readFile(file));
    EXPECT_TRUE(rules.isMonitored("pc17", "c:\\windows\\notepad.exe"));
    EXPECT_FALSE(rules.isMonitored("pc17", "c:\\tools\\hammer.exe"));
    EXPECT_FALSE(filter.isWanted("pc17", "c:\\windows\\notepad.exe"));
    EXPECT_TRUE(filter.isWanted("pc17", "c:\\tools\\hammer.dll"));
}

} // namespace Velmor
