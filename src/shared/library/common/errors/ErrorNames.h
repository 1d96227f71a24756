#pragma once

#include <cstdint>
#include <string_view>

namespace Velmor {

/// The published symbolic name of a native system error from 0 to 1642; empty if the number has none.
std::string_view errorNameOf(uint32_t code);

} // namespace Velmor
