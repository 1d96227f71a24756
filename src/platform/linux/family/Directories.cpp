#include "platform/linux/family/Directories.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

namespace Velmor {

namespace {
std::string firstOf(std::initializer_list<const char*> variables, const char* otherwise) {
    for (const char* variable : variables) {
        const char* value = std::getenv(variable);
        if (value && *value)
            return std::string(value).substr(0, std::string(value).find(':')); // the manager may list several
    }
    return otherwise;
}
} // namespace

std::string runtimeDirectory() {
    return firstOf({"VELMOR_RUNTIME_DIR", "RUNTIME_DIRECTORY"}, "/run/velmor");
}

std::string stateDirectory() {
    return firstOf({"VELMOR_STATE_DIR", "STATE_DIRECTORY"}, "/var/lib/velmor");
}

std::string resourcesFile() {
    return firstOf({"VELMOR_RESOURCES"}, "/etc/velmor/resources.toml");
}

std::string asFileName(std::string name) {
    std::replace(name.begin(), name.end(), '/', '_');
    return name == "." || name == ".." ? "_" : name;
}

} // namespace Velmor
