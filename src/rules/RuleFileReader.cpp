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

/// Takes a value off the front of `rest`, up to the first blank outside quotes, which goes too. `quoted` stays true if
/// a quote never ends.
std::string takeValue(std::string_view& rest, bool& quoted) {
    std::string value;
    quoted = false;
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

std::string adviceForKey(std::string_view key) {
    static const std::vector<std::string_view> words = [] {
        std::vector<std::string_view> list(ruleWords.size());
        std::transform(ruleWords.begin(), ruleWords.end(), list.begin(), [](const RuleWord& row) { return row.word; });
        return list;
    }();
    if (const size_t word = key.find_first_not_of(blanks); word == std::string_view::npos)
        return "write KEY=VALUE";
    else if (word > 0 || isBlank(key.back()))
        return "write exactly one blank between conditions, and none around =";
    if (key.front() == '#')
        return "put comments on lines of their own";
    if (key.find_first_of(blanks) != std::string_view::npos)
        return "put a value that holds blanks in quotes";
    return hintOr(key, words, "the documentation lists the conditions");
}
} // namespace

bool RuleFileReader::read(const std::string& fileName, std::string& errorText) {
    if (!FileOps::exists(fileName)) {
        sink_.error(1, "the rule file isn't there", "make it, or correct the key runtally.include-exclude");
        errorText = "File not accessible";
        return false;
    }
    if (!file_.open(fileName, BasicFile::MODE_READ)) {
        sink_.error(1, "the rule file can't be opened", "make it readable");
        errorText = "Failed to open file";
        return false;
    }
    const bool read = readLines() && !unreadable_;
    file_.close();
    if (unreadable_)
        sink_.error(1, "the rule file can't be read", "make it readable");
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
        if (equals == std::string_view::npos) { // a key without a value at the line's end is dropped
            tellDropped(pairs);
            return true;
        }
        const std::string_view key = pairs.substr(0, equals);
        pairs.remove_prefix(equals + 1);
        bool isOpen = false;
        const std::string value = takeValue(pairs, isOpen);
        if (isOpen)
            sink_.warning(lineNumber_, "a quote never ends, and takes the rest of the line", "close it with \"");
        if (!addCondition(rule, key, value))
            return false;
    }
}

bool RuleFileReader::readBlockRule() {
    Rule rule;
    if (!readStatus(line_, rule.status) || !readBlock(rule))
        return false;
    if (!rule.conditions.empty())
        rules_.push_back(std::move(rule));
    else
        sink_.warning(rule.line, "the block has no conditions, and leaves no rule",
                      "write datatype=* in it for a rule that always holds");
    return true;
}

bool RuleFileReader::readReferenceBlock() {
    const std::string name = line_.substr(referenceHead.size());
    Rule block;
    if (!readBlock(block))
        return false;
    if (block.conditions.empty()) {
        sink_.warning(block.line, "the block has no conditions, and is dropped", "write one, or remove it");
        return true;
    }
    if (const auto former = references_.find(name); former != references_.end())
        sink_.warning(block.line,
                      "the block \"" + name + "\" replaces that of line " + std::to_string(former->second.line),
                      "put the conditions of both into one");
    if (name.empty() || name.front() == ' ' || name.front() == '\t')
        sink_.warning(block.line, "the name of the block is empty or begins with a blank",
                      "write the name directly behind ref:");
    references_[name] = std::move(block);
    return true;
}

bool RuleFileReader::readBlock(Rule& rule) {
    rule.line = lineNumber_;
    if (!nextLine() || line_ != blockOpen)
        return failAtLine("Missing '{' in line ",
                          "write { alone on the line behind the word, or conditions behind it on the same line");
    while (nextLine()) {
        if (line_ == blockClose)
            return true;
        if (!readBlockCondition(rule))
            return false;
    }
    return failAtLine("Missing '}' in/after line ", "close the block with } alone on a line");
}

bool RuleFileReader::readBlockCondition(Rule& rule) {
    const size_t equals = line_.find('=');
    std::string key = line_.substr(0, equals);
    trimBlanks(key);
    std::string value = equals == std::string::npos ? std::string() : line_.substr(equals + 1);
    trimBlanks(value);
    if (equals == std::string::npos && ruleKeyFromWord(key))
        sink_.warning(lineNumber_, "the condition \"" + key + "\" has no value", "write " + key + "=VALUE");
    StringSearcher::unquote(value);
    if (value.find('"') != std::string::npos)
        sink_.warning(lineNumber_, "a quote within a value belongs to it here", "put quotes around the whole value");
    return addCondition(rule, key, value);
}

bool RuleFileReader::addCondition(Rule& rule, std::string_view key, const std::string& value) {
    const auto number = ruleKeyFromWord(key);
    if (!number)
        return fail("Invalid key \"", key, adviceForKey(key));
    RuleCondition condition;
    condition.key = *number;
    condition.line = lineNumber_;
    if (!readValue(condition, value))
        return false;
    if (sink_)
        tellValue(condition, value);
    rule.conditions.push_back(std::move(condition));
    return true;
}

bool RuleFileReader::readStatus(std::string_view word, RuleStatus& status) {
    if (word == "include")
        status = RuleStatus::include;
    else if (word == "exclude")
        status = RuleStatus::exclude;
    else
        return fail("Invalid status \"", word,
                    hintOr(word.substr(0, word.find_first_of("={:")), {"include", "exclude", "ref:"},
                           "begin rules with include, exclude or ref:NAME"));
    return true;
}

bool RuleFileReader::fail(std::string_view head, std::string_view offender, std::string_view advice) {
    error_.assign(head).append(offender).append("\"");
    sink_.error(lineNumber_, error_, advice);
    error_.append(" in line ").append(std::to_string(lineNumber_));
    return false;
}

bool RuleFileReader::failAtLine(std::string_view head, std::string_view advice) {
    sink_.error(std::max(lineNumber_, 1), head.substr(0, head.find("' ") + 1), advice);
    error_.assign(head).append(std::to_string(lineNumber_));
    return false;
}

void RuleFileReader::tellDropped(std::string_view rest) const {
    if (rest.empty())
        return;
    std::string_view word = rest.substr(0, rest.find_first_of(blanks));
    sink_.warning(lineNumber_, "\"" + std::string(rest) + "\" is no condition, and is dropped",
                  word.starts_with('#') ? "put comments on lines of their own"
                  : word == "{"         ? "write { alone on the next line"
                                        : "write KEY=VALUE");
}

} // namespace Velmor
