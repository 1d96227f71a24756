#pragma once

#include "platform/VersionResources.h"
#include "platform/linux/naming/DesktopIndex.h"
#include "platform/linux/naming/PackageIndex.h"

#include <mutex>

namespace Velmor {

/// What executables say about themselves: the package note in the file, a desktop entry that starts it, or the package
/// that owns it, whichever there is first.
class LinuxVersionResources : public VersionResources {
public:
    LinuxVersionResources() = default;
    /// Looks for desktop entries and packages below other roots than the system's.
    LinuxVersionResources(const std::string& applications, const std::string& packages)
        : desktop_(applications), packages_(packages) {}

    std::unique_ptr<VersionResource> open(std::string_view path) override;

private:
    std::mutex mutex_; // guards both indexes
    DesktopIndex desktop_;
    PackageIndex packages_;
};

} // namespace Velmor
