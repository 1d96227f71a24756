#pragma once

#include "shared/library/common/configuration/DOMNode.h"
#include "shared/library/common/text/ConfSearcher.h"
#include "shared/library/common/text/Tokenizer.h"

#include <string_view>

namespace Velmor {

class Logger;

/// Builds the tree of entries from the text of a configuration file. The text must outlive it.
class ConfTreeBuilder {
public:
    ConfTreeBuilder(std::string_view text, const Logger& logger)
        : text_(text), tokenizer_(text, &searcher_), logger_(logger) {}

    /// Adds the entries to `root`. Throws `ConfigException` CF_CONF at the first token that fits nowhere; the entries
    /// complete until then are in the tree.
    void build(DOMNode& root) { readEntries(root, 0); }

    /// The line of the token at hand, from 1.
    size_t line() const;

private:
    bool readEntries(DOMNode& parent, int depth);
    bool nextToken();
    [[noreturn]] void fail(std::string_view missing, int32_t sourceLine);

    std::string_view text_;
    ConfSearcher searcher_;
    Tokenizer tokenizer_;
    Token token_;
    const Logger& logger_;
};

} // namespace Velmor
