#pragma once

#include "platform/FileSystem.h"

namespace Velmor {

/// Files on POSIX calls. `\` becomes `/` and a leading drive the root at the last moment.
class LinuxFileSystem : public FileSystem {
public:
    std::unique_ptr<OpenFile> openFile(std::string_view path, OpenMode mode, uint32_t& error) override;
    bool find(std::string_view path, FoundFile& found, uint32_t& error) override;
    bool findExecutable(std::string_view path) override;
    bool scan(std::string_view directory, std::string_view pattern, std::vector<FoundFile>& found,
              uint32_t& error) override;
    bool copy(std::string_view from, std::string_view to, bool overwrite, uint32_t& error) override;
    bool move(std::string_view from, std::string_view to, bool replace, uint32_t& error) override;
    void moveTogether(const std::vector<FileMove>& moves, std::vector<uint32_t>& errors) override;
    bool remove(std::string_view path, uint32_t& error) override;
    bool isWritable(std::string_view directory) override;
    bool makeDirectory(std::string_view path, uint32_t& error) override;
    bool setAttributes(std::string_view path, uint32_t attributes, uint32_t& error) override;
    bool fullPath(std::string_view path, std::string& full, uint32_t& error) override;
    bool currentDirectory(std::string& path, uint32_t& error) override;
    bool windowsDirectory(std::string& path, uint32_t& error) override;
    uint32_t driveType(std::string_view drive) override;
    bool freeSpace(std::string_view path, uint64_t& bytes, uint32_t& error) override;
    bool deviceOfDrive(std::string_view drive, std::string& device) override;
    bool environment(std::string_view name, std::string& value) override;
    bool hasShortNames() override { return false; }
};

} // namespace Velmor
