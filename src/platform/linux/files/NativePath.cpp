#include "platform/linux/files/NativePath.h"

#include "platform/linux/base/DirectoryReader.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/threads/Checkpoint.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <mutex>
#include <sys/stat.h>
#include <unordered_map>

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

/// The names of a directory that was read last, by their lower-case form. Look-ups of names that aren't there come in
/// rows, and a directory may be large.
class LastDirectory {
public:
    /// The only name that equals `name` but for case; empty if there isn't exactly one.
    std::string onlyMatch(const std::string& directory, const std::string& name) {
        struct stat state {};
        if (stat(directory.c_str(), &state) != 0)
            return {};
        const ServiceLock lock(mutex_);
        if (!isSame(state))
            read(directory, state);
        const auto found = names_.find(lowered(name));
        return found == names_.end() ? std::string() : found->second;
    }

private:
    static std::string lowered(std::string name) {
        for (char& c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return name;
    }

    bool isSame(const struct stat& state) const {
        return isSettled_ && FileIdentity(state) == directory_ && state.st_mtim.tv_sec == changed_.tv_sec &&
               state.st_mtim.tv_nsec == changed_.tv_nsec;
    }

    void read(const std::string& directory, const struct stat& state) {
        DirectoryReader entries(directory);
        names_.clear();
        const bool isRead = entries.forEach([this](const char* name, uint64_t /*inode*/) {
            const auto [place, isNew] = names_.try_emplace(lowered(name), name);
            if (!isNew)
                place->second.clear(); // two that differ in case alone
            return true;
        });
        directory_ = FileIdentity(state);
        changed_ = state.st_mtim;
        // A change within the clock's grain of the one that was seen would not show.
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        isSettled_ = isRead && now.tv_sec - changed_.tv_sec >= settlingTime;
    }

    static constexpr time_t settlingTime = 2; // seconds

    std::mutex mutex_; // guards the rest
    std::unordered_map<std::string, std::string> names_;
    FileIdentity directory_;
    timespec changed_{};
    bool isSettled_ = false;
};

std::string onlyMatch(const std::string& directory, const std::string& name) {
    // A path that isn't there asks for the same few directories in turn.
    static std::array<LastDirectory, 8> last;
    const std::string place = directory.empty() ? "." : directory;
    return last[std::hash<std::string>()(place) % last.size()].onlyMatch(place, name);
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

/// The directory is mostly there as it is written, so the walk goes up from the end.
std::string findIgnoringCase(const std::string& path) {
    const size_t last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return path;
    const size_t separator = path.rfind('/', last);
    std::string directory = separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
    const std::string name = path.substr(directory.size(), last + 1 - directory.size());
    if (!directory.empty() && !exists(directory)) {
        directory = findIgnoringCase(directory);
        if (directory.empty())
            return {};
    }
    std::string found = directory + name;
    if (!exists(found)) {
        const std::string match = onlyMatch(directory, name);
        if (match.empty())
            return {};
        found = directory + match;
    }
    return found + path.substr(last + 1);
}

} // namespace Velmor
