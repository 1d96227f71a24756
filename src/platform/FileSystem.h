#pragma once

#include "platform/Clock.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Attribute bits by their native values.
namespace FileAttribute {
constexpr uint32_t readOnly = 0x1;
constexpr uint32_t hidden = 0x2;
constexpr uint32_t system = 0x4;
constexpr uint32_t directory = 0x10;
constexpr uint32_t archive = 0x20;
constexpr uint32_t device = 0x40; // no data of its own: a pipe, a socket, a device
constexpr uint32_t normal = 0x80;
constexpr uint32_t temporary = 0x100;
constexpr uint32_t sparseFile = 0x200;
constexpr uint32_t reparsePoint = 0x400; // a link; what else is told is its target's
constexpr uint32_t compressed = 0x800;
constexpr uint32_t offline = 0x1000;
constexpr uint32_t encrypted = 0x4000;
} // namespace FileAttribute

/// Drive types by their native values.
namespace DriveType {
constexpr uint32_t unknown = 0;
constexpr uint32_t noRootDirectory = 1;
constexpr uint32_t fixed = 3;
} // namespace DriveType

/// What a search of the file system finds. Times are wall-clock seconds.
struct FoundFile {
    std::string name; // the last component, as the file system stores it
    uint64_t size = 0;
    uint32_t attributes = 0; // native bits
    int64_t created = 0;
    int64_t accessed = 0;
    int64_t modified = 0;
};

struct FileMove {
    std::string from;
    std::string to;
};

enum class OpenMode : uint8_t {
    read,             // must exist
    readRegular,      // must exist, with data of its own, and be no link: for names that anybody may have put there
    write,            // made if missing, emptied
    append,           // made if missing, every write goes to the end
    readWrite,        // must exist
    readWriteEmptied, // made if missing, emptied
    readAppend,       // made if missing, read anywhere, written at the end
};

/// An open file; destroying it closes it. Unbuffered: each call is one call of the system. Errors are native numbers.
class OpenFile {
public:
    virtual ~OpenFile() = default;

    /// Reads at the position up to `size` bytes; `count` 0 with true is the end of the file.
    virtual bool read(char* buffer, size_t size, size_t& count, uint32_t& error) = 0;

    /// Writes all of `data` at the position, going on after interruptions and short writes. On failure `written`
    /// says how many bytes went out.
    virtual bool write(std::string_view data, size_t& written, uint32_t& error) = 0;

    /// Moves the position to `offset` from the beginning.
    virtual bool seek(uint64_t offset, uint32_t& error) = 0;

    virtual bool size(uint64_t& bytes, uint32_t& error) = 0;

    /// Cuts the file at `bytes`.
    virtual bool truncate(uint64_t bytes, uint32_t& error) = 0;

    /// False once the path leads to another file, or to none: somebody has moved or deleted this one.
    virtual bool isAt(std::string_view path) = 0;

    /// False once the last name of the file has gone. Cheaper than `isAt`, and blind for a file that was moved.
    virtual bool isLinked() = 0;

    /// Closes; false if the system only now reports that earlier writes were lost.
    virtual bool close(uint32_t& error) = 0;

    /// Gives the file away as a descriptor of the C library, which whoever takes it closes; -1 if there is none. A
    /// system whose files have handles of another kind makes one from that.
    virtual int release() = 0;
};

/// Files and directories by path. `\` and `/` both separate. Names are exact where the system tells cases apart. What
/// is made can be read by its owner and its group, and by nobody else; on a system with access lists, by the user that
/// the program runs as and by administrators.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    virtual std::unique_ptr<OpenFile> openFile(std::string_view path, OpenMode mode, uint32_t& error) = 0;

    /// The one entry of that path, which holds no wildcards. False with error 2 or 3 if there is none.
    virtual bool find(std::string_view path, FoundFile& found, uint32_t& error) = 0;

    /// Whether there is a file of that path, or, since executables are known in lower case only, the one entry that
    /// differs from it in nothing but case.
    virtual bool findExecutable(std::string_view path) = 0;

    /// All entries of a directory, "." and ".." too, whose names match `pattern` ("*" and "?", without regard to
    /// case where the system has none), in the order in which the system gives them. An empty directory text means
    /// the current directory.
    virtual bool scan(std::string_view directory, std::string_view pattern, std::vector<FoundFile>& found,
                      uint32_t& error) = 0;

    virtual bool copy(std::string_view from, std::string_view to, bool overwrite, uint32_t& error) = 0;

    /// With `replace` an existing target is replaced, also across volumes; without it one gives error 183. When the
    /// call returns true, the data and the new name survive a power cut.
    virtual bool move(std::string_view from, std::string_view to, bool replace, uint32_t& error) = 0;

    /// Several moves of files within one directory, without replacing; `errors` gets the error of each, 0 if it was
    /// done. When the call returns, those survive a power cut; this costs less than one call for each.
    virtual void moveTogether(const std::vector<FileMove>& moves, std::vector<uint32_t>& errors) = 0;

    virtual bool remove(std::string_view path, uint32_t& error) = 0;
    /// Whether this program may make files in a directory. Tells by the rights, and makes none.
    virtual bool isWritable(std::string_view directory) = 0;
    virtual bool makeDirectory(std::string_view path, uint32_t& error) = 0;

    /// Sets the native attribute bits; `normal` makes a file writable.
    virtual bool setAttributes(std::string_view path, uint32_t attributes, uint32_t& error) = 0;

    /// The absolute form of a path, made from the text alone.
    virtual bool fullPath(std::string_view path, std::string& full, uint32_t& error) = 0;

    virtual bool currentDirectory(std::string& path, uint32_t& error) = 0;
    virtual bool windowsDirectory(std::string& path, uint32_t& error) = 0;

    /// The type of a drive such as "C:"; 0 if it can't be told that there is one.
    virtual uint32_t driveType(std::string_view drive) = 0;

    /// How many bytes this program may still write to the file system of a path.
    virtual bool freeSpace(std::string_view path, uint64_t& bytes, uint32_t& error) = 0;

    /// The device path that a drive such as "C:" stands for; false if it stands for nothing.
    virtual bool deviceOfDrive(std::string_view drive, std::string& device) = 0;

    virtual bool environment(std::string_view name, std::string& value) = 0;

    /// True where a path may come with shortened components, so that the stored names must be looked up.
    virtual bool hasShortNames() = 0;
};

} // namespace Velmor
