#include "rules/RuleFileReader.h"

#include "shared/library/common/errors/Exception.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr std::string_view blanks = " \t";
constexpr std::string_view referenceHead = "ref:";
constexpr std::string_view blockOpen = "{";
constexpr std::string_view blockClose = "}";

bool isBlank(char c) {
    return blanks.find(c) != std::string_view::npos;
}

/// What a backslash inside quotes makes of the character behind it.
std::string unescape(char c) {
    switch (c) {
    case '"':
        return "\"";
    case 'n':
        return "\n";
    case 'r':
        return "\r";
    case 't':
        return "\t";
    default:
        return std::string("\\") + c;
    }
}

/// Takes a value off the front of `rest`, up to the first blank outside quotes, which goes too.
std::string takeValue(std::string_view& rest) {
    std::string value;
    bool quoted = false;
    while (!rest.empty()) {
        const char c = rest.front();
        rest.remove_prefix(1);
        if (!quoted && isBlank(c))
            break;
        if (c == '"') {
            quoted = !quoted;
        } else if (quoted && c == '\\' && !rest.empty()) {
            value += unescape(rest.front());
            rest.remove_prefix(1);
        } else {
            value += c;
        }
    }
    return value;
}
} // namespace

bool RuleFileReader::read(const std::string& fileName, std::string& errorText) {
    if (!FileOps::exists(fileName)) {
        errorText = "File not accessible";
        return false;
    }
    if (!file_.open(fileName, BasicFile::MODE_READ)) {
        errorText = "Failed to open file";
        return false;
    }
    const bool read = readLines() && !unreadable_;
    file_.close();
    if (!read)
        errorText = unreadable_ ? "Failed to read file" : error_;
    return read;
}

bool RuleFileReader::readLines() {
    while (nextLine()) {
        bool read = false;
        if (matchesAtIgnoringCase(line_, referenceHead, 0))
            read = readReferenceBlock();
        else if (line_.find_first_of(blanks) != std::string::npos)
            read = readInlineRule();
        else
            read = readBlockRule();
        if (!read)
            return false;
    }
    return true;
}

bool RuleFileReader::nextLine() {
    while (!file_.eof(BasicFile::LAST_USED)) {
        line_ = file_.readLine();
        unreadable_ = file_.getError() != BasicFile::ERROR_NONE;
        if (unreadable_)
            break;
        ++lineNumber_;
        trimBlanks(line_);
        if (!line_.empty() && line_.front() != '#')
            return true;
    }
    line_.clear();
    return false;
}

bool RuleFileReader::readInlineRule() {
    Rule rule;
    rule.line = lineNumber_;
    const std::string_view line = line_;
    const size_t wordEnd = line.find_first_of(blanks);
    if (!readStatus(line.substr(0, wordEnd), rule.status))
        return false;
    const size_t pairs = line.find_first_not_of(blanks, wordEnd);
    if (pairs != std::string_view::npos && !readPairs(line.substr(pairs), rule))
        return false;
    rules_.push_back(std::move(rule));
    return true;
}

bool RuleFileReader::readPairs(std::string_view pairs, Rule& rule) {
    while (true) {
        const size_t equals = pairs.find('=');
        if (equals == std::string_view::npos)
            return true; // a key without a value at the line's end is dropped
        const std::string_view key = pairs.substr(0, equals);
        pairs.remove_prefix(equals + 1);
        if (!addCondition(rule, key, takeValue(pairs)))
            return false;
    }
}

bool RuleFileReader::readBlockRule() {
    Rule rule;
    if (!readStatus(line_, rule.status) || !readBlock(rule))
        return false;
    if (!rule.conditions.empty())
        rules_.push_back(std::move(rule));
    return true;
}

bool RuleFileReader::readReferenceBlock() {
    const std::string name = line_.substr(referenceHead.size());
    Rule block;
    if (!readBlock(block))
        return false;
    if (!block.conditions.empty())
        references_[name] = std::move(block);
    return true;
}

bool RuleFileReader::readBlock(Rule& rule) {
    rule.line = lineNumber_;
    if (!nextLine() || line_ != blockOpen)
        return failAtLine("Missing '{' in line ");
    while (nextLine()) {
        if (line_ == blockClose)
            return true;
        if (!readBlockCondition(rule))
            return false;
    }
    return failAtLine("Missing '}' in/after line ");
}

bool RuleFileReader::readBlockCondition(Rule& rule) {
    const size_t equals = line_.find('=');
    std::string key = line_.substr(0, equals);
    trimBlanks(key);
    std::string value = equals == std::string::npos ? std::string() : line_.substr(equals + 1);
    trimBlanks(value);
    StringSearcher::unquote(value);
    return addCondition(rule, key, value);
}

bool RuleFileReader::addCondition(Rule& rule, std::string_view key, const std::string& value) {
    const auto number = ruleKeyFromWord(key);
    if (!number)
        return fail("Invalid key \"", key);
    RuleCondition condition;
    condition.key = *number;
    if (!readValue(condition, value))
        return false;
    rule.conditions.push_back(std::move(condition));
    return true;
}

bool RuleFileReader::readStatus(std::string_view word, RuleStatus& status) {
    if (word == "include")
        status = RuleStatus::include;
    else if (word == "exclude")
        status = RuleStatus::exclude;
    else
        return fail("Invalid status \"", word);
    return true;
}

bool RuleFileReader::fail(std::string_view head, std::string_view offender) {
    error_.assign(head).append(offender).append("\" in line ").append(std::to_string(lineNumber_));
    return false;
}

bool RuleFileReader::failAtLine(std::string_view head) {
    error_.assign(head).append(std::to_string(lineNumber_));
    return false;
}

} // namespace Velmor
