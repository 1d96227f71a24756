#pragma once

#include "platform/linux/base/ActingAs.h"
#include "platform/linux/base/FileDescriptor.h"

#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace Velmor {

/// A directory of the family's, held open: what is made in it is made there whatever becomes of its path. While it
/// lives its thread acts as the directory's owner, if it is root.
class SafeDirectory {
public:
    static constexpr mode_t usualMode = 0750;
    static constexpr mode_t sharedMode = 03770; // the group works in it, and everybody keeps his own

    /// Opens the directory; one that is missing is made, with those that lead to it, whatever is masked. False with
    /// `errno` if it can't be had, EPERM if users outside its group may change what others made in it.
    explicit SafeDirectory(const std::string& path, mode_t mode = usualMode);
    explicit operator bool() const { return static_cast<bool>(directory_); }

    int get() const { return directory_.get(); }

    /// Opens a file in it, never through a link; with O_CREAT one that is missing is made with exactly `mode`. Empty
    /// with `errno` on failure.
    FileDescriptor openFile(const std::string& name, int flags, mode_t mode) const;

    /// Replaces a file by a new one with that text, which survives a power cut. False with `errno`; the file is then as
    /// it was.
    bool writeFile(const std::string& name, std::string_view text, mode_t mode) const;

    /// Gives an entry of ours, which is no link, another mode.
    bool setMode(const std::string& name, mode_t mode) const;

    bool remove(const std::string& name) const;

private:
    FileDescriptor directory_;
    std::unique_ptr<ActingAs> identity_;
};

/// One plain sentence if others could change what lies in a directory, with the command that mends it; else empty. One
/// that is missing is safe.
std::string directoryProblem(const std::string& path);

} // namespace Velmor
