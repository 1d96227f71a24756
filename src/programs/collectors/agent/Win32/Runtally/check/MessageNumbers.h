#pragma once

#include "shared/library/logger/LogCommons.h"

#include <span>

namespace Velmor {

/// The numbers of the messages that a module sends; a test holds them against the headers.
std::span<const int32_t> messageNumbers(int32_t module);

} // namespace Velmor
