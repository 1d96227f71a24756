#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace Velmor {

/// A file whose bytes are the input at hand, for parsers that read files. It lies in memory, where the system has such
/// a place.
class FuzzFile {
public:
    explicit FuzzFile(const std::string& ending = "") {
        std::string pattern = std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzzXXXXXX" : "/tmp/fuzzXXXXXX";
        directory_ = mkdtemp(pattern.data());
        path_ = directory_ + "/input" + ending;
    }
    FuzzFile(const FuzzFile&) = delete;
    FuzzFile& operator=(const FuzzFile&) = delete;
    ~FuzzFile() { std::filesystem::remove_all(directory_); }

    const std::string& write(const uint8_t* data, size_t size) const {
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        return path_;
    }
    const std::string& directory() const { return directory_; }

private:
    std::string directory_;
    std::string path_;
};

} // namespace Velmor
