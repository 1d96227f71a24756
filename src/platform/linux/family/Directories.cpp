#include "platform/linux/family/Directories.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr mode_t directoryMode = 0755; // any user may reach the mailslots; the locks are their owner's alone

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

void adoptOwnerOfDirectory(const std::string& path) {
    struct stat directory {};
    if (geteuid() == 0 && stat(path.substr(0, path.rfind('/') + 1).c_str(), &directory) == 0 && directory.st_uid != 0)
        (void)!lchown(path.c_str(), directory.st_uid, directory.st_gid);
}

bool makeDirectoryTree(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), directoryMode) == 0) {
            chmod(part.c_str(), directoryMode); // whatever the service manager masks
            adoptOwnerOfDirectory(part);
        } else if (errno != EEXIST) {
            return false;
        }
        if (end == std::string::npos)
            return true;
    }
}

std::string asFileName(std::string name) {
    std::replace(name.begin(), name.end(), '/', '_');
    return name == "." || name == ".." ? "_" : name;
}

} // namespace Velmor
