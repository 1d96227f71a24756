#pragma once

#include "platform/Threads.h"

namespace Velmor {

/// Threads on pthreads. A thread ended by force stops at its next checkpoint; one that hasn't within a second is
/// stopped by a signal where it stands. Stopped threads stay until the process ends, and don't keep it from ending.
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
