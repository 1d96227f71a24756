#include "shared/library/common/text/Tokenizer.h"

namespace Velmor {

bool Tokenizer::nextToken(Token& token) {
    if (!searcher_ || position_ >= text_.size())
        return false;
    bool significant = false;
    const size_t end = searcher_->nextTokenEnd(text_, significant, position_, StringSearcher::npos);
    if (end == StringSearcher::npos)
        return false;
    token.setText(text_.substr(position_, end - position_), significant);
    previous_ = position_;
    position_ = end;
    return true;
}

} // namespace Velmor
