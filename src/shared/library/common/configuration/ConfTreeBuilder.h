#pragma once

#include "shared/library/common/configuration/DOMNode.h"
#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/text/ConfSearcher.h"
#include "shared/library/common/text/Tokenizer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace Velmor {

class Logger;

/// Builds the tree of entries from the text of a configuration file. The text must outlive it.
class ConfTreeBuilder {
public:
    ConfTreeBuilder(std::string_view text, const Logger& logger, FindingSink sink = {})
        : text_(text), tokenizer_(text, &searcher_), logger_(logger), sink_(std::move(sink)) {}

    /// Adds the entries to `root`. Throws `ConfigException` CF_CONF at the first token that fits nowhere; the entries
    /// complete until then are in the tree. Tells the sink what it passes over.
    void build(DOMNode& root);

    /// The line of the token at hand, from 1.
    size_t line() const;

private:
    bool readEntries(DOMNode& parent, int depth);
    bool nextToken();
    void tellToken() const;
    void tellValue() const;
    void tellRepeated(const DOMNode& parent, const DOMNode& node) const;
    void tellCutOff(const DOMNode* node) const;
    [[noreturn]] void fail(std::string_view missing, int32_t sourceLine);

    std::string_view text_;
    ConfSearcher searcher_;
    Tokenizer tokenizer_;
    Token token_;
    const Logger& logger_;
    FindingSink sink_;
    int32_t tokenLine_ = 1; // where the token at hand begins
    int32_t nextLine_ = 1;  // where it ends
    std::string lastText_;  // of the one before that meant something
    int32_t lastLine_ = 1;
};

} // namespace Velmor
