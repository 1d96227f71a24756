#include "shared/library/common/text/WhitespaceSearcher.h"

namespace Velmor {

size_t WhitespaceSearcher::skipBlanks(std::string_view text, size_t& count, size_t start, size_t length) const {
    text = bounded(text, start, length);
    size_t position = start;
    while (position < text.size() && isBlank(text[position]))
        ++position;
    count = position - start;
    return position < text.size() ? position : npos;
}

size_t WhitespaceSearcher::nextTokenEnd(std::string_view text, bool& significant, size_t start, size_t length) const {
    text = bounded(text, start, length);
    if (start >= text.size())
        return npos;
    significant = !isBlank(text[start]);
    bool quoted = false;
    size_t position = start;
    for (; position < text.size(); ++position) {
        if (!quoted && isBlank(text[position]) == significant)
            break;
        if (text[position] == quote_)
            quoted = !quoted;
    }
    return position;
}

} // namespace Velmor
