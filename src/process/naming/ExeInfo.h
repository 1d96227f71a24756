#pragma once

#include <string>

namespace Velmor {

/// What is known about one executable.
struct ExeInfo {
    std::string fileName; // last path component, as given
    std::string menuName; // from a start-menu entry; nothing in this collector fills it
    std::string productName;
    std::string fileDescription;
    std::string menuFolder; // of a start-menu entry; nothing in this collector fills it
    std::string fileVersion;
    std::string applicationName; // the answer
};

} // namespace Velmor
