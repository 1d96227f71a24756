#pragma once

#include "platform/FileSystem.h"
#include "shared/library/common/time/DateTime.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Attribute bits of `FileInfo`.
namespace InfoAttribute {
constexpr uint32_t archive = 0x0001;
constexpr uint32_t compressed = 0x0002;
constexpr uint32_t directory = 0x0004;
constexpr uint32_t encrypted = 0x0008;
constexpr uint32_t hidden = 0x0010;
constexpr uint32_t offline = 0x0020;
constexpr uint32_t readOnly = 0x0040;
constexpr uint32_t system = 0x0080;
constexpr uint32_t temporary = 0x0100;
constexpr uint32_t normal = 0x0200;
constexpr uint32_t sparseFile = 0x1000;
} // namespace InfoAttribute

struct FileInfo {
    bool exists = false;
    std::string fullPath;
    uint32_t sizeLow = 0;
    uint32_t sizeHigh = 0;
    uint32_t attributes = 0; // of InfoAttribute
    DateTimeParts created;   // UTC
    DateTimeParts accessed;
    DateTimeParts modified;
};

struct DirectoryEntry {
    std::string name;
    bool isFile = false;    // false for directories
    bool isRegular = false; // a file with data of its own, and no link to one
};

/// What touches the file system. Nothing here throws: each answers true or false, or an empty text.
class FileOps {
public:
    virtual ~FileOps() = default;

    /// Fails if the target exists and `overwrite` is false.
    static bool copy(std::string_view from, std::string_view to, bool overwrite);
    /// With `replace` an existing target is replaced, also across volumes, and the result survives a power cut.
    static bool move(std::string_view from, std::string_view to, bool replace);
    /// Moves files within one directory without replacing any; answers for each whether it was done. All survive a
    /// power cut.
    static std::vector<bool> moveTogether(const std::vector<FileMove>& moves);
    static bool deleteFile(std::string_view path);
    /// One level.
    static bool makeDirectory(std::string_view path);
    /// Ends in a separator; empty on failure.
    static std::string getCurrentDirectory();
    /// Only `exists` is written if there is no such file.
    static void getInfo(std::string_view path, FileInfo& info);
    /// In bytes; 0 if there is no such file.
    static uint64_t size(std::string_view path);
    /// When the content was last changed, in seconds since 1970; false if there is no such file. Costs one look.
    static bool lastChange(std::string_view path, int64_t& seconds);
    /// `mask` of InfoAttribute.
    static bool setAttributes(std::string_view path, uint32_t mask);
    /// A path that ends in ":" asks for the drive.
    static bool exists(std::string_view path);
    /// The meaning of the first component of a path as the service manager or a driver sees it. False if it has none.
    static bool expandSpecialPrefix(std::string_view component, std::string& text);
    /// The path with each component as the file system stores it, as far as it exists; ends in a separator.
    static std::string getLongPath(std::string_view path);
    /// The entries that match, "." and ".." too, in the order in which the system gives them.
    static std::vector<DirectoryEntry> scanDirectory(std::string_view directory, std::string_view pattern);

    /// The system's error number after the calling thread's last `move` or `expandSpecialPrefix`.
    static uint32_t getLastError();
};

} // namespace Velmor
