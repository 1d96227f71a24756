#pragma once

#include <cstdint>
#include <string>

namespace Velmor {

/// The native error number for a value of `errno`.
uint32_t nativeError(int systemError);

/// The system's words for a native error number.
std::string nativeErrorText(uint32_t nativeError);

} // namespace Velmor
