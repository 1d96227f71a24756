#pragma once

#include <filesystem>
#include <string>

namespace Velmor {

/// A fresh directory that goes with the object.
class TempDirectory {
public:
    TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory();

    /// With a "/" at its end.
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + name; }

    /// Writes a file in it, and returns its path.
    std::string write(const std::string& name, const std::string& text) const;
    /// The names of all files in it, sorted.
    std::string names() const { return namesOf(path_); }
    static std::string namesOf(const std::string& directory);

private:
    std::string path_;
};

std::string readFile(const std::string& path);
/// The bits of a file's mode; 0 if there is none.
uint32_t modeOf(const std::string& path);

} // namespace Velmor
