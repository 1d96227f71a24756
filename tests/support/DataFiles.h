#pragma once

#include <string>
#include <vector>

namespace Velmor {

/// The text of all data files of a stem, delivered or not, in the order in which they were begun.
std::string dataText(const std::string& directory, const std::string& stem);
std::vector<std::string> linesOf(const std::string& text);
std::vector<std::string> dataLines(const std::string& directory, const std::string& stem);

} // namespace Velmor
