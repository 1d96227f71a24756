#pragma once

#include <cstdint>

namespace Velmor {

/// The capabilities that matter here, by their kernel numbers.
enum class Capability : uint8_t {
    dacOverride = 1,
    dacReadSearch = 2,
    fileOwner = 3,
    setGroup = 6,
    setUser = 7,
    netAdmin = 12,
    lockMemory = 14,
    sysPtrace = 19,
    sysAdmin = 21,
    sysNice = 23,
    sysResource = 24,
    perfmon = 38
};

/// Whether the calling thread has it, in force or to be raised.
bool hasCapability(Capability capability);

/// Gives up for good what the program never needs, for the calling thread and those that it starts. In force stays what
/// a look at processes needs, and for root what its work in files needs; the rest is raised when it is used.
void limitCapabilities();

/// Gives up all of them for good: for a thread that only reads what others send.
void giveCapabilitiesUp();

/// A thread's capabilities, one bit for each.
struct CapabilitySets {
    uint64_t effective = 0; // in force
    uint64_t permitted = 0;
    uint64_t inheritable = 0;
};

/// What the calling thread has in force, for as long as one of the following lives.
class CapabilitiesInForce {
public:
    CapabilitiesInForce(const CapabilitiesInForce&) = delete;
    CapabilitiesInForce& operator=(const CapabilitiesInForce&) = delete;
    ~CapabilitiesInForce();

protected:
    /// `kept` are the bits of those that stay in force, `raised` of those that come into force if the thread has them.
    CapabilitiesInForce(uint64_t kept, uint64_t raised);

private:
    CapabilitySets before_;
    bool isChanged_ = false;
};

/// One more.
class RaisedCapability : CapabilitiesInForce {
public:
    explicit RaisedCapability(Capability capability);
};

/// None, while bytes are parsed that anybody may have made.
class LoweredCapabilities : CapabilitiesInForce {
public:
    LoweredCapabilities();
};

/// Whether the ids of processes that this program sees are those that the kernel's messages to all bear.
bool isInMachinesPidNamespace();

} // namespace Velmor
