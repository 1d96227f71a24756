#pragma once

#include <cstdint>
#include <string>

namespace Velmor {

/// The version record of the operating system, in the native API's terms.
struct SystemVersion {
    uint32_t platformId = 2; // 2: the NT line, which alone is served under that API
    uint32_t major = 0;
    uint32_t minor = 0;
    bool isWorkstation = false;
    uint32_t suiteMask = 0;
    bool isServerR2 = false;
    std::string name; // what the system calls itself; empty where the name is made from the numbers
};

/// What a program uses of the machine.
struct OwnUse {
    double processorSeconds = 0; // since its start, in its own code and in the system's
    uint64_t memory = 0;         // bytes in main memory
    uint32_t handles = 0;        // open ones
};

/// Facts of the machine. All are cheap enough to be asked for each record.
class Machine {
public:
    virtual ~Machine() = default;

    virtual bool computerName(std::string& name) = 0;

    /// The workgroup or domain that the machine belongs to; false if there is none or it can't be learnt.
    virtual bool domain(std::string& name) = 0;

    /// The native processor architecture: 0 i386, 6 ia64, 9 amd64, 65535 unknown.
    virtual uint16_t architecture() = 0;

    virtual bool systemVersion(SystemVersion& version) = 0;

    /// "windows" or "linux", the word by which rules name the platform.
    virtual std::string platformWord() = 0;

    /// True for a 32-bit program on a 64-bit system; false if that can't be learnt.
    virtual bool isWow64() = 0;

    /// Installed memory in bytes; 0 if it can't be learnt.
    virtual uint64_t physicalMemory() = 0;

    /// Turns on the right to look at other users' processes. On failure `failedCall` names what refused, with
    /// `error`; the name is one of "OpenProcessToken", "LookupPrivilegeValue", "AdjustTokenPrivileges".
    virtual bool enableDebugPrivilege(std::string& failedCall, uint32_t& error) = 0;

    /// One plain sentence for each right that the program lacks, with what it costs; empty if nothing is missing.
    virtual std::string missingRights() = 0;

    /// The id of this process.
    virtual uint32_t processId() = 0;

    /// What this program uses itself.
    virtual OwnUse ownUse() = 0;

    /// Gives up the rights that the program never needs, and leaves in force only those by which processes are looked
    /// at; the calls that need others take them for that moment. Before the program has further threads. Rights that a
    /// system gives to each call that asks, as Windows does with a token's privileges, need no giving up.
    virtual void limitRights() = 0;

    /// Raises what the system allows of open handles to its upper limit, since each tracked process holds one.
    virtual void raiseHandleLimit() = 0;
};

} // namespace Velmor
