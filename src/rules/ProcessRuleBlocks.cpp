#include "rules/ProcessRuleBlocks.h"

#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <utility>

namespace Velmor {

namespace {
constexpr char commentMark = '#';

std::string withoutComment(std::string text) {
    text.resize(std::min(text.size(), text.find(commentMark)));
    trimBlanks(text);
    return text;
}

ProcessRuleBlock openBlock(std::string line) {
    ProcessRuleBlock block;
    block.status = line.front() == '+' ? BlockStatus::plus : BlockStatus::minus;
    if (line.find("host") == std::string::npos)
        return block;
    firstField(line, '=');
    block.host = withoutComment(std::move(line));
    return block;
}

/// A block without names says nothing.
void closeBlock(ProcessRuleBlock&& block, ProcessRuleBlocks& blocks) {
    if (!block.names.empty())
        blocks.push_back(std::move(block));
}

bool hostMatches(const ProcessRuleBlock& block, std::string_view computerName) {
    return block.host == "*" || wildcardMatchIgnoringCase(block.host, computerName);
}

/// Tells what a file of patterns says in vain.
class PatternCheck {
public:
    explicit PatternCheck(const FindingSink& sink) : sink_(sink) {}

    void nextLine() { ++line_; }

    void tellBlock(const ProcessRuleBlock& block, const std::string& line) {
        if (!sink_)
            return;
        blockLine_ = line_;
        const std::string rest = withoutComment(line.substr(1));
        const bool isMinus = block.status == BlockStatus::minus;
        if (block.host.empty())
            sink_.warning(line_,
                          isMinus ? "the block names no computers, so it says yes on all of them"
                                  : "the block names no computers, so it fits none",
                          nearestWord(rest.substr(0, rest.find('=')), {"host"}).empty() ? "write host=* behind it"
                                                                                        : "did you mean host=*?");
        else if (const size_t equals = rest.find('='); withoutComment(rest.substr(0, equals)) != "host")
            sink_.warning(line_, "\"" + rest.substr(0, equals) + "\" isn't the word host", "write host=PATTERN");
        else if (block.host.find_first_of("{}()=,;:|\"'") != std::string::npos)
            sink_.warning(line_, "no computer is called like \"" + block.host + "\", so the block fits none",
                          "write one pattern of names, with * and ?");
        else if (block.host.find_first_of(" \t") != std::string::npos)
            sink_.warning(line_, "the pattern of computers \"" + block.host + "\" holds a blank, and fits none",
                          "write names on lines of their own");
    }

    void tellName(const ProcessRuleBlock& block, const std::string& name) {
        if (!sink_)
            return;
        if (block.status == BlockStatus::none)
            sink_.warning(line_, "\"" + name + "\" stands before the first + or -, which says yes to it",
                          "write a line + host=* or - host=* before it");
        if (name.find_first_of("/\\") != std::string::npos)
            sink_.warning(line_, "the pattern never fits, since it is compared with the file's name alone",
                          "leave the directory out");
        else if (name.find('=') != std::string::npos)
            sink_.warning(line_, "\"" + name + "\" is taken for a pattern of names",
                          "write host= behind the + or - of the block");
        else if (name.find('"') != std::string::npos)
            sink_.warning(line_, "quotes belong to the pattern here", "leave them out");
        else if (name.find_first_of("{},;|") != std::string::npos)
            sink_.warning(line_, "\"" + name + "\" is one pattern here, with all its signs",
                          "write one pattern on each line, without braces");
        tellDecided(block, name);
    }

    /// A block comes to its end.
    void tellEnd(const ProcessRuleBlock& block) {
        if (sink_ && block.status != BlockStatus::none && block.names.empty())
            sink_.warning(blockLine_, "the block lists no names, and is dropped", "list them on lines of their own");
    }

private:
    void tellDecided(const ProcessRuleBlock& block, const std::string& name) {
        const std::string key = toLowerCopy(name);
        for (const auto& [pattern, line] : decided_)
            if (pattern == key || (pattern.find('*') != std::string::npos && wildcardMatch(pattern, key))) {
                sink_.warning(line_, "\"" + name + "\" is decided in line " + std::to_string(line) + " already",
                              "put it before that line, or remove it");
                return;
            }
        if (block.host == "*" || block.status == BlockStatus::minus)
            decided_.emplace_back(key, line_);
    }

    const FindingSink& sink_;
    int32_t line_ = 0;
    int32_t blockLine_ = 0;
    std::vector<std::pair<std::string, int32_t>> decided_; // patterns that leave nothing to later ones, on any computer
};
} // namespace

bool readRuleBlocks(const std::string& fileName, ProcessRuleBlocks& blocks, const FindingSink& sink) {
    const SmartPointer<FilePlain> file(new FilePlain(fileName));
    if (!file->exists() || file->size() == 0)
        return false;
    file->open(FileBase::ACCESS_READ);
    ProcessRuleBlock block;
    PatternCheck check(sink);
    while (!file->eof()) {
        std::string line;
        file->readLine(line);
        check.nextLine();
        trimBlanks(line);
        if (line.empty() || line.front() == commentMark)
            continue;
        if (line.front() == '+' || line.front() == '-') {
            check.tellEnd(block);
            closeBlock(std::exchange(block, openBlock(line)), blocks);
            check.tellBlock(block, line);
        } else {
            const std::string name = withoutComment(std::move(line));
            check.tellName(block, name);
            block.names.insert(name);
        }
    }
    check.tellEnd(block);
    closeBlock(std::move(block), blocks);
    return true;
}

bool testRuleBlocks(const ProcessRuleBlocks& blocks, std::string_view computerName, std::string_view name) {
    for (const ProcessRuleBlock& block : blocks) {
        const bool nameMatches = std::any_of(block.names.begin(), block.names.end(), [&](const std::string& pattern) {
            return wildcardMatchIgnoringCase(pattern, name);
        });
        if (!nameMatches)
            continue;
        if (hostMatches(block, computerName))
            return block.status == BlockStatus::plus;
        if (block.status != BlockStatus::plus)
            return true;
    }
    return false;
}

} // namespace Velmor
