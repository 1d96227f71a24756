#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Lower-cases a text in place, byte by byte.
void toLower(std::string& text);
/// A lowered copy.
std::string toLowerCopy(std::string_view text);

/// Removes blanks and control bytes at both ends; letters beyond ASCII stay.
void trimBlanks(std::string& text);

/// A foreign text as it may be shown: with "?" for control bytes, which would steer a terminal or forge lines of a log.
std::string printable(std::string text);

/// The decimal text of an integer.
std::string toString(int64_t number);

/// Takes the text up to the first `separator` off the front of `text`, and drops the separator; without one all of it.
std::string firstField(std::string& text, char separator);

/// Whether `part` stands in `text` at `position`; an empty part always does.
bool matchesAt(std::string_view text, std::string_view part, size_t position);
/// The same without regard to case.
bool matchesAtIgnoringCase(std::string_view text, std::string_view part, size_t position);

/// The number at the front of a text, as `atol` reads it; one that is too large becomes the largest.
int32_t toNumber(const std::string& text);

/// Cuts a text into at most `limit` fields, of which the last takes what is left. A separator at the end adds none.
void split(std::string_view text, char separator, std::vector<std::string>& list, size_t limit);
/// The same with the number of each field, as `atol` reads it; an empty field is 0.
void splitNumbers(std::string_view text, char separator, std::vector<int32_t>& list, size_t limit);

/// Whether the text fits the pattern: "*" stands for any run of characters, "?" for exactly one; a run of them that
/// begins with "*" counts as a single "*". An empty pattern fits nothing, and only "*" fits an empty text.
bool wildcardMatch(std::string_view pattern, std::string_view text);
bool wildcardMatchIgnoringCase(std::string_view pattern, std::string_view text);

} // namespace Velmor
