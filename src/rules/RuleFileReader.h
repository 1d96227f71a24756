#pragma once

#include "rules/IncludeExclude.h"
#include "shared/library/common/files/BasicFile.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Velmor {

/// Reads a rule file into rules and "ref:" blocks. The first mistake ends the reading; what was read stays.
class RuleFileReader {
public:
    RuleFileReader(std::vector<Rule>& rules, IncludeExclude::References& references, FindingSink sink = {})
        : rules_(rules), references_(references), sink_(std::move(sink)) {}

    /// False with a text that tells what is wrong and in which line.
    bool read(const std::string& fileName, std::string& errorText);

private:
    // Each of these answers false after it has set error_.
    bool readLines();
    bool readInlineRule();
    bool readBlockRule();
    bool readReferenceBlock();
    bool readBlock(Rule& rule);
    bool readBlockCondition(Rule& rule);
    bool readPairs(std::string_view pairs, Rule& rule);
    bool addCondition(Rule& rule, std::string_view key, const std::string& value);
    bool readStatus(std::string_view word, RuleStatus& status);
    bool readValue(RuleCondition& condition, const std::string& value);
    bool readDate(RuleCondition& condition, const std::string& value);
    bool readWeekDays(RuleCondition& condition, const std::string& value);
    bool readTimeOfDay(RuleCondition& condition, const std::string& value);
    bool readNumber(RuleCondition& condition, const std::string& value);

    /// Fetches the next line that isn't empty or a comment into line_, trimmed. False at the end of the file.
    bool nextLine();
    bool fail(std::string_view head, std::string_view offender, std::string_view advice);
    bool failAtLine(std::string_view head, std::string_view advice);
    void tellDropped(std::string_view rest) const;
    void tellValue(const RuleCondition& condition, const std::string& value) const;

    std::vector<Rule>& rules_;
    IncludeExclude::References& references_;
    FindingSink sink_;
    BasicFile file_;
    std::string line_;
    int32_t lineNumber_ = 0;  // of line_, from 1
    bool unreadable_ = false; // the system stopped giving lines
    std::string error_;
};

} // namespace Velmor
