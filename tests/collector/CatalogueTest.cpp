// The headers of message numbers against the catalogues that are installed.

#include "programs/collectors/agent/Win32/Runtally/check/MessageNumbers.h"
#include "support/DataFiles.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace Velmor {

namespace {
/// The numbers that `pattern` finds, one a line.
std::multiset<int> numbersIn(const std::string& file, const char* pattern) {
    std::multiset<int> numbers;
    const std::regex expression(pattern);
    for (const std::string& line : linesOf(readFile(std::string(VELMOR_SOURCES) + "/" + file)))
        if (std::smatch match; std::regex_search(line, match, expression))
            numbers.insert(std::stoi(match[1]));
    return numbers;
}
} // namespace

TEST(Catalogue, EachNumberHasItsWordingAndEachWordingItsNumber) {
    for (const auto& [header, catalogue] : {
             std::pair{"src/programs/collectors/agent/AgentMessages.h", "agent"},
             std::pair{"src/process/RuntallyMessages.h", "runtally"},
             std::pair{"src/shared/library/common/configuration/ConfigurationMessages.h", "configuration"},
         }) {
        const auto numbers = numbersIn(header, R"(^ +\w+ = (\d+),)");
        EXPECT_FALSE(numbers.empty()) << header;
        EXPECT_EQ(numbers,
                  numbersIn("examples/etc/velmor/LogMessages/" + std::string(catalogue) + ".mess", R"(^(\d+): \S)"))
            << catalogue;
        const auto known = messageNumbers(LogCommons::moduleFromName(catalogue));
        EXPECT_EQ(numbers, std::multiset<int>(known.begin(), known.end())) << "as the check knows them";
    }
}

} // namespace Velmor
