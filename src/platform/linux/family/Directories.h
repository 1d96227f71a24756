#pragma once

#include <string>

namespace Velmor {

/// Where the family's programs meet: named locks and mailslots. VELMOR_RUNTIME_DIR, else the service manager's
/// RUNTIME_DIRECTORY, else /run/velmor.
std::string runtimeDirectory();

/// Where the family's programs keep what outlives them. VELMOR_STATE_DIR, else STATE_DIRECTORY, else /var/lib/velmor.
std::string stateDirectory();

/// The file of the family's values that the administrator writes. VELMOR_RESOURCES, else /etc/velmor/resources.toml.
std::string resourcesFile();

/// The name of a lock or a mailslot as a file name: nothing that leads out of its directory.
std::string asFileName(std::string name);

} // namespace Velmor
