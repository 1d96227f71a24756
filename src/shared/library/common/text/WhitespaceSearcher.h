#pragma once

#include "shared/library/common/text/StringSearcher.h"

namespace Velmor {

/// Tokens that white space separates; quoted stretches belong to their token.
class WhitespaceSearcher : public StringSearcher {
public:
    size_t skipBlanks(std::string_view text, size_t& count, size_t start, size_t length) const override;
    size_t nextTokenEnd(std::string_view text, bool& significant, size_t start, size_t length) const override;
};

} // namespace Velmor
