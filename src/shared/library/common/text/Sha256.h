#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// The SHA-256 of bytes, as 64 hexadecimal digits.
std::string sha256(std::string_view bytes);

} // namespace Velmor
