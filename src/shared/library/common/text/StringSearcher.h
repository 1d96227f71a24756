#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmor {

/// Finds the tokens of a language in a text, and brings the helpers that all parsers use.
class StringSearcher {
public:
    static constexpr size_t npos = std::string_view::npos; // no token; or as a length: up to the end of the text

    virtual ~StringSearcher() = default;

    /// The position of the first character behind the blanks at `start`, with their number in `count`; npos at the end.
    virtual size_t skipBlanks(std::string_view text, size_t& count, size_t start, size_t length) const = 0;

    /// The index just behind the token at `start`, or npos if there is none. `significant` is false for blanks.
    virtual size_t nextTokenEnd(std::string_view text, bool& significant, size_t start, size_t length) const = 0;

    /// How often a character stands in that part of the text.
    static size_t countChar(char character, std::string_view text, size_t start = 0, size_t length = npos);
    /// Remove blanks at the ends, that is all up to code 32 and from code 128 on; return how many were removed.
    static size_t trimLeft(std::string& text);
    static size_t trimRight(std::string& text);
    static size_t trim(std::string& text);
    /// Removes a pair of like quotes, double or single, around the text.
    static void unquote(std::string& text);
    static size_t replaceChar(std::string& text, char from, char to);
    static void padRight(std::string& text, size_t length, char character);
    static void padLeft(std::string& text, size_t length, char character);

    /// Blanks are judged by the signed code, so bytes from 128 on count too.
    static bool isBlank(char c) { return static_cast<signed char>(c) <= ' '; }

protected:
    /// The part of the text that a call may look at, from its beginning.
    static std::string_view bounded(std::string_view text, size_t start, size_t length) {
        return length == npos ? text : text.substr(0, start + length);
    }

    char quote_ = '"';
};

} // namespace Velmor
