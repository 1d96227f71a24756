#pragma once

#include <string>

namespace Velmor {

/// Writes a program that needs no other file: it leaves with code 7 at once, or only waits for signals.
void writeTinyProgram(const std::string& path, bool waits = false);

} // namespace Velmor
