#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace Velmor {

/// Which file it is, whatever path leads to it.
struct FileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;

    FileIdentity() = default;
    FileIdentity(uint64_t ofDevice, uint64_t ofInode) : device(ofDevice), inode(ofInode) {}
    explicit FileIdentity(const struct stat& state) : device(state.st_dev), inode(state.st_ino) {}

    /// None with errno if the path leads nowhere.
    static std::optional<FileIdentity> of(const std::string& path) {
        struct stat state {};
        return stat(path.c_str(), &state) == 0 ? std::optional(FileIdentity(state)) : std::nullopt;
    }

    bool operator==(const FileIdentity&) const = default;
};

struct FileIdentityHash {
    size_t operator()(const FileIdentity& file) const { return file.device * 31 + file.inode; }
};

} // namespace Velmor
