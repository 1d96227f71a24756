#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Velmor {

/// An open process. While one is held, its id can't be mistaken for a later process with the same number.
class NativeProcess {
public:
    virtual ~NativeProcess() = default;
};
using ProcessHandle = std::unique_ptr<NativeProcess>;

/// The rights that a process runs under.
class NativeToken {
public:
    virtual ~NativeToken() = default;
};
using TokenHandle = std::unique_ptr<NativeToken>;

/// A module of an open process, as an opaque number that is valid until the next `modules` on that handle.
using ModuleId = uint64_t;

/// The operating system's processes, as the collector looks at them. Handles given to a call are never empty.
class Processes {
public:
    virtual ~Processes() = default;

    /// Ids of all processes that run, in no order, without kernel threads. False on failure.
    virtual bool enumerate(std::vector<uint32_t>& ids) = 0;

    /// Opens for looking. On failure the handle is empty and `error` tells: 5 refused, 87 no such process.
    virtual ProcessHandle open(uint32_t pid, uint32_t& error) = 0;

    /// 259 while it runs. False if the code can't be learnt; it is then never invented.
    virtual bool exitCode(const ProcessHandle& process, uint32_t& code, uint32_t& error) = 0;

    /// Fills `modules`, whose size is the room, from its front: the executable first, then the others in the order of
    /// loading. `count` is how many there are, which may be more than fitted. Room for one costs no look at the rest.
    virtual bool modules(const ProcessHandle& process, std::vector<ModuleId>& modules, size_t& count,
                         uint32_t& error) = 0;

    /// The full path of a module, and its last component. False with `error` if it has gone.
    virtual bool modulePath(const ProcessHandle& process, ModuleId module, std::string& path, uint32_t& error) = 0;
    virtual bool moduleName(const ProcessHandle& process, ModuleId module, std::string& name, uint32_t& error) = 0;

    /// The device path of the image that the process was started from.
    virtual bool imageName(const ProcessHandle& process, std::string& path, uint32_t& error) = 0;

    /// The rights of the process, and from them the SID of its user in text form.
    virtual TokenHandle openToken(const ProcessHandle& process, uint32_t& error) = 0;
    virtual bool tokenUser(const TokenHandle& token, std::string& sid, uint32_t& error) = 0;

    /// When the kernel started the process, in a unit of its own: equal for two handles of one process, different for
    /// two processes that had one id. False if it can't be learnt.
    virtual bool startTime(const ProcessHandle& process, uint64_t& time) = 0;

    /// The same in wall-clock seconds since 1970.
    virtual bool startSecond(const ProcessHandle& process, int32_t& second) = 0;

    /// False if the path of the process's executable leads this program to another file or to none, since the process
    /// sees other files under the same paths. True where nobody can tell.
    virtual bool isFileHere(const ProcessHandle& process) = 0;
};

} // namespace Velmor
