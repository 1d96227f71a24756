#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// What works on the text of paths, and what is made of the operations of `FileOps`. Nothing here throws. `\` separates
/// and `/` is accepted.
class FileUtils {
public:
    virtual ~FileUtils() = default;

    static bool move(std::string_view from, std::string_view to, bool replace);
    static bool copy(std::string_view from, std::string_view to, bool overwrite);
    /// In bytes, modulo 2^32; 0 if there is no such file.
    /// The whole text of a regular file, and of none that is larger or a link: for files that anybody may leave.
    static bool readForeign(std::string_view path, size_t mostBytes, std::string& text);
    static uint32_t getFileSize(std::string_view path);

    /// Adds a separator to a text that isn't empty and doesn't end in one.
    static void addSeparator(std::string& text);
    /// From the second character on, every run of separators becomes one `\`.
    static void normalisePath(std::string& text);
    /// What stands behind the last ".", wherever in the path; or empty.
    static std::string getExtension(std::string_view path);
    /// Takes the extension and its "." off the path, and returns the extension.
    static std::string stripExtension(std::string& path);
    /// Removes separators at the end, but leaves a text that is only one.
    static void stripSeparators(std::string& path);
    /// Up to and with the last separator; empty if there is none.
    static std::string getDirectory(std::string_view path);
    /// Behind the last separator; the whole path if there is none.
    static std::string getBaseName(std::string_view path);
    /// Deletes a file; a read-only one only with `force`.
    static bool remove(std::string_view path, bool force);
    /// An empty text is valid; wildcards or a separator at the end are not.
    static bool isValidFileName(std::string_view text);
    /// Makes the directories that lead to a file, or to a directory with a separator at its end.
    static bool makeDirectories(std::string_view path);
};

} // namespace Velmor
