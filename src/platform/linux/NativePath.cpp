#include "platform/linux/NativePath.h"

#include <algorithm>
#include <cctype>
#include <dirent.h>
#include <memory>
#include <strings.h>
#include <sys/stat.h>

namespace Velmor {

namespace {
bool startsWithDrive(std::string_view path) {
    return path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) &&
           (path.size() == 2 || path[2] == '\\' || path[2] == '/');
}

bool exists(const std::string& path) {
    struct stat state {};
    return stat(path.c_str(), &state) == 0;
}

/// The only name in a directory that equals `name` but for case; empty if there isn't exactly one.
std::string onlyMatch(const std::string& directory, const std::string& name) {
    struct Closer {
        void operator()(DIR* open) const { closedir(open); }
    };
    const std::unique_ptr<DIR, Closer> entries(opendir(directory.empty() ? "." : directory.c_str()));
    std::string match;
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
        if (strcasecmp(static_cast<const char*>(entry->d_name), name.c_str()) != 0)
            continue;
        if (!match.empty())
            return {};
        match = static_cast<const char*>(entry->d_name);
    }
    return match;
}
} // namespace

std::string toNativePath(std::string_view path) {
    std::string native;
    if (startsWithDrive(path)) {
        path.remove_prefix(2);
        native = path.empty() ? "/" : "";
    }
    native += path;
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

std::string findIgnoringCase(const std::string& path) {
    std::string found;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        if (!name.empty() && !exists(found + name)) {
            const std::string match = onlyMatch(found, name);
            if (match.empty())
                return {};
            found += match;
        } else {
            found += name;
        }
        if (end < path.size())
            found += '/';
        begin = end + 1;
    }
    return found;
}

} // namespace Velmor
