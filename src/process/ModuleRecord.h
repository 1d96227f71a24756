#pragma once

#include <cstdint>
#include <string>

namespace Velmor {

/// A module that a process had loaded, and the seconds since 1970 at which it was first and last seen.
struct ModuleRecord {
    std::string name;
    int32_t firstSeen = 0;
    int32_t lastSeen = 0;
};

} // namespace Velmor
