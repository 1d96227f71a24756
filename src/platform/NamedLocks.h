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

class NamedLocks {
public:
    virtual ~NamedLocks() = default;

    /// Takes `name`, never waiting. Empty with error 183 if a lock of that name exists already, in this process or
    /// another; empty with another number if the name can't be made.
    virtual NamedLockHandle create(std::string_view name, uint32_t& error) = 0;
};

} // namespace Velmor
