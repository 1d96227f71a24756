#pragma once

#include "shared/library/common/text/StringSearcher.h"

#include <memory>
#include <string>
#include <string_view>

namespace Velmor {

class Token {
public:
    virtual ~Token() = default;

    void setText(std::string_view text, bool significant) {
        text_ = text;
        significant_ = significant;
    }
    const std::string& getText() const { return text_; }
    bool isSignificant() const { return significant_; } // false for a run of blanks

private:
    std::string text_;
    bool significant_ = false;
};

/// Cuts a text into tokens, one after the other. Neither text nor searcher is owned; both must outlive it.
class Tokenizer {
public:
    Tokenizer(std::string_view text, const StringSearcher* searcher) : text_(text), searcher_(searcher) {}
    virtual ~Tokenizer() = default;

    /// Index of the next unread character.
    size_t getPosition() const { return position_; }
    /// Where the last token began.
    size_t getPrevious() const { return previous_; }

    /// Takes the next token; false at the end of the text.
    bool nextToken(Token& token);

private:
    std::string_view text_;
    size_t position_ = 0;
    size_t previous_ = 0;
    const StringSearcher* searcher_;
};

} // namespace Velmor
