#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// Puts "?" in place of control bytes: a name can't forge the separators of records and messages.
void maskControlBytes(std::string& text);

/// What the kernel writes behind the path of a file that has no name any more. A file may really be called so.
constexpr std::string_view deletedMark = " (deleted)";

} // namespace Velmor
