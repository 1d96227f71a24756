#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// The path as the kernel takes it: `/` separates, and a drive in front stands for the root.
std::string toNativePath(std::string_view path);

/// The one entry whose path differs from `path` in nothing but case; empty if there is none or there are several. Asked
/// for when nothing bears the exact name.
std::string findIgnoringCase(const std::string& path);

} // namespace Velmor
