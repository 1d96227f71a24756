#pragma once

#include "platform/NamedLocks.h"
#include "platform/linux/base/FileDescriptor.h"

namespace Velmor {

/// Named locks are locked files in the runtime directory; the kernel frees them with their process. A thread that holds
/// one isn't stopped until it has let go.
class LinuxNamedLocks : public NamedLocks {
public:
    NamedLockHandle create(std::string_view name, NamedLockAccess access, uint32_t& error) override;
};

/// The locked file of a name, for a holder that keeps it for long; empty with `error` 183 if somebody has it.
FileDescriptor takeNamedLock(std::string_view name, NamedLockAccess access, uint32_t& error);

/// Takes the file of a name away, by its holder, for a name that won't come again.
void forgetNamedLock(std::string_view name);

} // namespace Velmor
