#pragma once

#include "shared/library/common/text/StringSearcher.h"

namespace Velmor {

/// The tokens of the configuration language: bare words, quoted texts, the operators "=(){}" and the newline, comments,
/// and runs of one blank character.
class ConfSearcher : public StringSearcher {
public:
    size_t skipBlanks(std::string_view text, size_t& count, size_t start, size_t length) const override;
    size_t nextTokenEnd(std::string_view text, bool& significant, size_t start, size_t length) const override;

    /// Whether a token is a comment.
    static bool isComment(std::string_view token);
};

} // namespace Velmor
