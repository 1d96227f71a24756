#pragma once

#include "platform/linux/base/FileDescriptor.h"

#include <string>
#include <sys/types.h>

namespace Velmor {

// What the program makes has exactly the mode that is asked for, whatever the process masks: the mode is set on what
// was made, and never by a name, which may lead elsewhere by then. `directory` is an open one, or AT_FDCWD.

/// Opens a file; with O_CREAT one that is missing is made. Empty with `errno` on failure.
FileDescriptor openExactly(int directory, const std::string& name, int flags, mode_t mode);

/// Makes a directory. It keeps the group of one that gives its own to what is made in it. False with `errno`, EEXIST if
/// the name is there.
bool makeDirectoryExactly(int directory, const std::string& name, mode_t mode);

} // namespace Velmor
