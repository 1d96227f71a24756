#pragma once

#include <cstdlib>

namespace Velmor {

/// A number that whoever runs the tests may set.
inline int fromEnvironment(const char* name, int otherwise) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : otherwise;
}

} // namespace Velmor
