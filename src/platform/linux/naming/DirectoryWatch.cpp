#include "platform/linux/naming/DirectoryWatch.h"

#include <ctime>
#include <sys/stat.h>

namespace Velmor {

namespace {
constexpr int64_t lookInterval = 5; // seconds

int64_t changeTime(const std::string& path) {
    struct stat state {};
    if (stat(path.c_str(), &state) != 0)
        return 0;
    return int64_t{state.st_mtim.tv_sec} * 1000000000 + state.st_mtim.tv_nsec;
}
} // namespace

bool DirectoryWatch::hasChanged() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (!times_.empty() && now.tv_sec < nextLook_)
        return false;
    nextLook_ = now.tv_sec + lookInterval;
    std::vector<int64_t> times;
    for (const std::string& directory : directories_)
        times.push_back(changeTime(directory));
    if (times == times_)
        return false;
    times_ = std::move(times);
    return true;
}

} // namespace Velmor
