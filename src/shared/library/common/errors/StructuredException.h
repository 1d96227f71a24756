#pragma once

#include <cstdint>

namespace Velmor {

/// An exception of the operating system on its way through the language's exception handling. It stands outside the
/// `Exception` family, so that no handler takes it for a failure of the program's own.
struct StructuredException {
    uint32_t code = 0;
};

} // namespace Velmor
