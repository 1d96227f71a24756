#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Velmor {

/// An option and its value; either may be empty.
using Argument = std::pair<std::string, std::string>;

/// Cuts a command line, given as one text, into its options and values, from left to right. One dash begins an option
/// of one character, two dashes one of a whole word. A value is the next word, or the text between a pair of like
/// quotes; a dash or a quote ends a word in progress.
std::vector<Argument> parseCommandLine(std::string_view text);

} // namespace Velmor
