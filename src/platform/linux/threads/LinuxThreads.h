#pragma once

#include "platform/Threads.h"

namespace Velmor {

/// Threads on pthreads. A thread ended by force stops at its next checkpoint; one that hasn't within a second is
/// stopped by a signal, in the program's own code or a wait only: elsewhere it may hold the allocator's locks, and one
/// that comes to no such place can't be ended. A thread that stopped at a checkpoint outside of critical sections
/// leaves the process; others stay until that ends, and don't keep it from ending.
class LinuxThreads : public Threads {
public:
    ThreadHandle create(ThreadRoutine routine, void* argument, uint32_t& id, uint32_t& error) override;
    uint32_t currentId() override;
    bool exitCode(const ThreadHandle& thread, uint32_t& code, uint32_t& error) override;
    bool suspend(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) override;
    bool resume(const ThreadHandle& thread, uint32_t& previousCount, uint32_t& error) override;
    bool terminate(const ThreadHandle& thread, uint32_t code, uint32_t& error) override;
};

} // namespace Velmor
