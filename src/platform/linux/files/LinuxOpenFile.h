#pragma once

#include "platform/FileSystem.h"

namespace Velmor {

/// An open descriptor.
class LinuxOpenFile : public OpenFile {
public:
    explicit LinuxOpenFile(int descriptor) : descriptor_(descriptor) {}
    LinuxOpenFile(const LinuxOpenFile&) = delete;
    LinuxOpenFile& operator=(const LinuxOpenFile&) = delete;
    ~LinuxOpenFile() override;

    bool read(char* buffer, size_t size, size_t& count, uint32_t& error) override;
    bool write(std::string_view data, size_t& written, uint32_t& error) override;
    bool seek(uint64_t offset, uint32_t& error) override;
    bool size(uint64_t& bytes, uint32_t& error) override;
    bool truncate(uint64_t bytes, uint32_t& error) override;
    bool isAt(std::string_view path) override;
    bool isLinked() override;
    bool close(uint32_t& error) override;
    int release() override;

    /// Makes the data survive a power cut.
    bool sync(uint32_t& error);

    /// Gives the file the mode of another.
    bool takeModeOf(const LinuxOpenFile& other, uint32_t& error);

private:
    int descriptor_; // -1 when closed
};

} // namespace Velmor
