#include "shared/library/common/text/StringSearcher.h"

#include <algorithm>

namespace Velmor {

size_t StringSearcher::countChar(char character, std::string_view text, size_t start, size_t length) {
    const std::string_view part = text.substr(std::min(start, text.size()), length);
    return static_cast<size_t>(std::count(part.begin(), part.end(), character));
}

size_t StringSearcher::trimLeft(std::string& text) {
    const auto end = std::find_if_not(text.begin(), text.end(), isBlank);
    const auto count = static_cast<size_t>(end - text.begin());
    text.erase(0, count);
    return count;
}

size_t StringSearcher::trimRight(std::string& text) {
    const size_t before = text.size();
    while (!text.empty() && isBlank(text.back()))
        text.pop_back();
    return before - text.size();
}

size_t StringSearcher::trim(std::string& text) {
    const size_t right = trimRight(text);
    return right + trimLeft(text);
}

void StringSearcher::unquote(std::string& text) {
    if (text.empty() || (text.front() != '"' && text.front() != '\'') || text.back() != text.front())
        return;
    if (text.size() > 1)
        text.pop_back();
    text.erase(0, 1);
}

size_t StringSearcher::replaceChar(std::string& text, char from, char to) {
    const size_t count = countChar(from, text);
    std::replace(text.begin(), text.end(), from, to);
    return count;
}

void StringSearcher::padRight(std::string& text, size_t length, char character) {
    text.append(length - std::min(length, text.size()), character);
}

void StringSearcher::padLeft(std::string& text, size_t length, char character) {
    text.insert(0, length - std::min(length, text.size()), character);
}

} // namespace Velmor
