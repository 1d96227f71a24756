#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// The path as the kernel takes it: `/` separates, and a drive in front stands for the root.
std::string toNativePath(std::string_view path);

/// The entry of that path, or the one that differs from it in nothing but case; empty if there is none, or several.
std::string findIgnoringCase(const std::string& path);

} // namespace Velmor
