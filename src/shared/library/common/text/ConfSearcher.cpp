#include "shared/library/common/text/ConfSearcher.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr std::string_view operators = "=(){}\n";

bool isOperator(char c) {
    return operators.find(c) != std::string_view::npos;
}

bool isConfBlank(char c) {
    return StringSearcher::isBlank(c) && c != '\n';
}

bool isQuote(char c) {
    return c == '"' || c == '\'';
}

size_t endOr(size_t position, std::string_view text) {
    return std::min(position, text.size());
}

size_t quotedEnd(std::string_view text, size_t start) {
    for (size_t p = start + 1; p < text.size(); ++p) {
        if (text[p] == '\\')
            ++p;
        else if (text[p] == text[start])
            return p + 1;
    }
    return text.size();
}

size_t lineCommentEnd(std::string_view text, size_t start) {
    const size_t end = endOr(text.find('\n', start), text);
    return end < text.size() && end > start && text[end - 1] == '\r' ? end - 1 : end;
}

size_t blockCommentEnd(std::string_view text, size_t start) {
    const size_t close = text.find("*/", start + 2);
    return close == std::string_view::npos ? text.size() : close + 2;
}

bool beginsComment(std::string_view text, size_t position) {
    return text[position] == '/' && position + 1 < text.size() &&
           (text[position + 1] == '/' || text[position + 1] == '*');
}
} // namespace

size_t ConfSearcher::skipBlanks(std::string_view text, size_t& count, size_t start, size_t length) const {
    text = bounded(text, start, length);
    size_t position = start;
    while (position < text.size() && isConfBlank(text[position]))
        ++position;
    count = position - start;
    return position < text.size() ? position : npos;
}

size_t ConfSearcher::nextTokenEnd(std::string_view text, bool& significant, size_t start, size_t length) const {
    text = bounded(text, start, length);
    if (start >= text.size())
        return npos;
    const char first = text[start];
    significant = !isConfBlank(first);
    if (!significant)
        return endOr(text.find_first_not_of(first, start), text);
    if (first == '#')
        return endOr(text.find('\n', start), text);
    if (isQuote(first))
        return quotedEnd(text, start);
    if (beginsComment(text, start))
        return text[start + 1] == '/' ? lineCommentEnd(text, start) : blockCommentEnd(text, start);
    if (isOperator(first))
        return start + 1;
    size_t position = start + 1;
    while (position < text.size() && !isQuote(text[position]) && !isBlank(text[position]) &&
           !isOperator(text[position]) && !beginsComment(text, position))
        ++position;
    return position;
}

bool ConfSearcher::isComment(std::string_view token) {
    return token.starts_with('#') || token.starts_with("//") || token.starts_with("/*");
}

} // namespace Velmor
