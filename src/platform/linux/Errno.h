#pragma once

#include <cstdint>

namespace Velmor {

/// The native error number for a value of `errno`.
uint32_t nativeError(int systemError);

} // namespace Velmor
