#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// Tells whether directories have changed since the last look, by their times of change. Looks every few seconds only.
class DirectoryWatch {
public:
    explicit DirectoryWatch(std::vector<std::string> directories) : directories_(std::move(directories)) {}

    /// True at the first call, and whenever something has been added to or removed from one of them since.
    bool hasChanged();

    const std::vector<std::string>& directories() const { return directories_; }

private:
    std::vector<std::string> directories_;
    std::vector<int64_t> times_; // nanoseconds
    int64_t nextLook_ = 0;       // monotonic seconds
};

} // namespace Velmor
