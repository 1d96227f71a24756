#pragma once

#include <cstdint>
#include <memory>

namespace Velmor {

/// A thread function: takes one pointer, returns the exit code.
using ThreadRoutine = uint32_t (*)(void*);

/// What the platform keeps of a thread; destroying it gives the handle back and leaves the thread alone.
class NativeThread {
public:
    virtual ~NativeThread() = default;
};
using ThreadHandle = std::unique_ptr<NativeThread>;

/// Threads of this process. An empty handle answers every call with error 6 (invalid handle).
class Threads {
public:
    virtual ~Threads() = default;

    /// Starts a thread. An exception that leaves its routine ends the thread and nothing else. On failure the handle is
    /// empty and `error` tells.
    virtual ThreadHandle create(ThreadRoutine routine, void* argument, uint32_t& id, uint32_t& error) = 0;

    /// The calling thread's id: the same number that `create` gives, never 0.
    virtual uint32_t currentId() = 0;

    /// 259 while the thread runs, then what its routine returned or `terminate` was given.
    virtual bool exitCode(const ThreadHandle& thread, uint32_t& code, uint32_t& error) = 0;

    /// Stop the thread where it stands until as many resumes; both give the count before the call.
    virtual bool suspend(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) = 0;
    virtual bool resume(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) = 0;

    /// Ends the thread by force. When this returns true it never runs another line of the program; it has unwound
    /// nothing and keeps the locks that it held.
    virtual bool terminate(const ThreadHandle& thread, uint32_t code, uint32_t& error) = 0;
};

} // namespace Velmor
