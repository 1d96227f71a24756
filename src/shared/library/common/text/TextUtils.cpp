#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>

namespace Velmor {

void toLower(std::string& text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + ('a' - 'A'));
}

std::string toLowerCopy(std::string_view text) {
    std::string lowered(text);
    toLower(lowered);
    return lowered;
}

void trimBlanks(std::string& text) {
    const auto isBlank = [](unsigned char c) { return c <= ' '; };
    text.erase(std::find_if_not(text.rbegin(), text.rend(), isBlank).base(), text.end());
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isBlank));
}

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return text;
}

std::string toString(int64_t number) {
    return std::to_string(number);
}

std::string firstField(std::string& text, char separator) {
    const size_t end = text.find(separator);
    std::string field = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return field;
}

bool matchesAt(std::string_view text, std::string_view part, size_t position) {
    if (part.empty())
        return true;
    return position < text.size() && text.substr(position, part.size()) == part;
}

bool matchesAtIgnoringCase(std::string_view text, std::string_view part, size_t position) {
    return matchesAt(toLowerCopy(text), toLowerCopy(part), position);
}

void split(std::string_view text, char separator, std::vector<std::string>& list, size_t limit) {
    list.clear();
    while (!text.empty()) {
        const size_t end = text.find(separator);
        if (end == std::string_view::npos || list.size() + 1 >= limit) {
            list.emplace_back(text);
            return;
        }
        list.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
}

int32_t toNumber(const std::string& text) {
    constexpr int64_t least = std::numeric_limits<int32_t>::min();
    constexpr int64_t most = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::clamp<int64_t>(std::strtoll(text.c_str(), nullptr, 10), least, most));
}

void splitNumbers(std::string_view text, char separator, std::vector<int32_t>& list, size_t limit) {
    std::vector<std::string> fields;
    split(text, separator, fields, limit);
    list.clear();
    for (const std::string& field : fields)
        list.push_back(toNumber(field));
}

namespace {
/// The end of the run of wildcards at `begin`.
size_t wildcardsEnd(std::string_view pattern, size_t begin) {
    return std::min(pattern.find_first_not_of("*?", begin), pattern.size());
}
} // namespace

bool wildcardMatch(std::string_view pattern, std::string_view text) {
    if (text.empty())
        return pattern == "*";
    if (pattern.empty())
        return false;
    // Behind a "*" the match is tried again one character further on, as often as it takes.
    size_t p = 0;
    size_t t = 0;
    size_t starPattern = std::string_view::npos;
    size_t starText = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starPattern = wildcardsEnd(pattern, p);
            p = starPattern;
            starText = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (starPattern != std::string_view::npos) {
            p = starPattern;
            t = ++starText;
        } else {
            return false;
        }
    }
    return p == pattern.size() || (pattern[p] == '*' && wildcardsEnd(pattern, p) == pattern.size());
}

bool wildcardMatchIgnoringCase(std::string_view pattern, std::string_view text) {
    return wildcardMatch(toLowerCopy(pattern), toLowerCopy(text));
}

} // namespace Velmor
