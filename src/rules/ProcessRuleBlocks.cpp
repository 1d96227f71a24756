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
} // namespace

bool readRuleBlocks(const std::string& fileName, ProcessRuleBlocks& blocks) {
    const SmartPointer<FilePlain> file(new FilePlain(fileName));
    if (!file->exists() || file->size() == 0)
        return false;
    file->open(FileBase::ACCESS_READ);
    ProcessRuleBlock block;
    while (!file->eof()) {
        std::string line;
        file->readLine(line);
        trimBlanks(line);
        if (line.empty() || line.front() == commentMark)
            continue;
        if (line.front() == '+' || line.front() == '-')
            closeBlock(std::exchange(block, openBlock(std::move(line))), blocks);
        else
            block.names.insert(withoutComment(std::move(line)));
    }
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
