#pragma once

#include "platform/linux/naming/FileDescription.h"

#include <string>

namespace Velmor {

/// Reads the note that a packager may leave in an executable: the package's name and version. False without one.
bool readPackageNote(const std::string& path, FileDescription& description);

} // namespace Velmor
