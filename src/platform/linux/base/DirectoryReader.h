#pragma once

#include "platform/linux/base/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace Velmor {

/// Reads the entries of a directory, again and again through the same descriptor. One thread at a time.
class DirectoryReader {
public:
    /// Opens the directory; if that fails the reader is empty, with errno.
    explicit DirectoryReader(const std::string& path);

    explicit operator bool() const { return static_cast<bool>(directory_); }
    /// For calls that take names within the directory; the reader's own.
    int descriptor() const { return directory_.get(); }

    /// What is done with an entry, "." and ".." among them; false ends the reading.
    using Visit = std::function<bool(const char* name, uint64_t inode)>;

    /// Visits the entries from the first on. False with errno if the system fails to give them all. Who wants only the
    /// first few is served sooner with a small `block`, the bytes that the system fills at a time. An empty reader
    /// fails.
    bool forEach(const Visit& visit, size_t block = mostOfBlock);

private:
    static constexpr size_t mostOfBlock = 32768;

    FileDescriptor directory_;
};

} // namespace Velmor
