#include "platform/linux/base/DirectoryReader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fcntl.h>
#include <sys/syscall.h>

namespace Velmor {

DirectoryReader::DirectoryReader(const std::string& path)
    : directory_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

/// By the system call itself, since the library's stream would open the directory anew for each round.
bool DirectoryReader::forEach(const Visit& visit, size_t block) {
    struct Entry { // as the kernel writes it
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        uint8_t type;
        char name[1];
    };
    if (lseek(directory_.get(), 0, SEEK_SET) != 0)
        return false;
    alignas(Entry) std::array<std::byte, mostOfBlock> buffer;
    while (true) {
        const long size = syscall(SYS_getdents64, directory_.get(), buffer.data(), std::min(block, buffer.size()));
        if (size <= 0)
            return size == 0;
        for (long place = 0; place < size;) {
            const auto* entry = reinterpret_cast<const Entry*>(buffer.data() + place);
            if (!visit(static_cast<const char*>(entry->name), entry->inode))
                return true;
            place += entry->length;
        }
    }
}

} // namespace Velmor
