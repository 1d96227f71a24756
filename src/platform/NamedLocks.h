#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace Velmor {

/// A name held on the whole machine; destroying it frees the name. So does the end of the process.
class NamedLock {
public:
    virtual ~NamedLock() = default;
};
using NamedLockHandle = std::unique_ptr<NamedLock>;

/// Who may take a lock.
enum class NamedLockAccess : uint8_t {
    own,    // this user alone; one that another user holds counts as held
    family, // the members of the family's group too
};

class NamedLocks {
public:
    virtual ~NamedLocks() = default;

    /// Takes `name`, never waiting. Empty with error 183 if a lock of that name exists already, in this process or
    /// another; empty with another number if the name can't be made, 5 if this user may not take it.
    virtual NamedLockHandle create(std::string_view name, NamedLockAccess access, uint32_t& error) = 0;
};

} // namespace Velmor
