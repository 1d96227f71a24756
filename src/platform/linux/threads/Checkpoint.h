#pragma once

#include <mutex>

namespace Velmor {

/// Where a thread that is to be ended by force stops for good: each service call that may wait or that reaches the
/// system passes one. It never returns then, and unwinds nothing.
void checkpoint();

/// How many critical sections the calling thread is in: one that is in none leaves nothing behind at a checkpoint.
extern thread_local volatile int enteredSections;

/// While one lives, the thread that made it passes checkpoints: it holds something that others could never get back
/// from it. One destroyed by another thread changes nothing for that one.
class StopDeferral {
public:
    StopDeferral();
    StopDeferral(const StopDeferral&) = delete;
    StopDeferral& operator=(const StopDeferral&) = delete;
    ~StopDeferral();

private:
    volatile int* count_; // of the thread that made it
};

/// Holds a mutex that is internal to a service.
class ServiceLock {
public:
    explicit ServiceLock(std::mutex& mutex) : guard_(mutex) {}

private:
    StopDeferral deferral_; // first taken, last given back
    std::lock_guard<std::mutex> guard_;
};

} // namespace Velmor
