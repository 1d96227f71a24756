#include "shared/library/common/errors/FileException.h"

#include <array>

namespace Velmor {

namespace {
// In the order of FileCode, from 0.
constexpr std::array<std::string_view, 28> texts{
    "No exception!",
    "Insufficient memory available.",
    "File does not exist.",
    "File already exists.",
    "File is open.",
    "File cannot be opened.",
    "File is closed.",
    "Unable to close file.",
    "Illegal combination of access flaggs.",
    "File is not opened for reading.",
    "Unable to read.",
    "File is not opened for writing.",
    "Unable to write.",
    "Unable to flush buffer.",
    "End of file.",
    "Illegal position.",
    "Unable to unlock file.",
    "Unable to lock file.",
    "Someone else has locked the file.",
    "Unable to copy file.",
    "Failed to rename.",
    "Failed to remove.",
    "Failed to create directory.",
    "Failed to get current directory.",
    "Not a directory.",
    "Unable to obtain free disk space.",
    "Unable to access file.",
    "An error occured. (No changes made.)",
};
} // namespace

void FileException::describe(std::string& out) const {
    describeAs(out, "File", texts);
}

} // namespace Velmor
