#pragma once

#include <string>

namespace Velmor {

/// What is known of an executable file; empty where nothing is.
struct FileDescription {
    std::string description;
    std::string product;
    std::string version;
};

} // namespace Velmor
