#pragma once

#include "platform/Threads.h"
#include "shared/library/common/win32/JobInstance.h"

namespace Velmor {

/// A thread of this process that can be started, held, asked to end, ended by force and started again. One supervising
/// thread at a time works on an object.
class ThreadInstance : public JobInstance {
public:
    /// Starts nothing. `routine` gets `argument` when the thread is started.
    ThreadInstance(ThreadRoutine routine, void* argument) : routine_(routine), argument_(argument) {}
    ThreadInstance(const ThreadInstance&) = delete;
    ThreadInstance& operator=(const ThreadInstance&) = delete;
    /// Ends a thread that still runs by force, and never waits for it to end by itself.
    ~ThreadInstance() override;

    void execute() override;
    uint32_t suspend() override;
    uint32_t resume() override;
    int32_t stop() override;
    int32_t getStatus() override;
    int32_t getExitCode(uint32_t& code) override;

    /// Id of the thread last started; 0 before.
    uint32_t getThreadId() const { return threadId_; }

private:
    /// Waits until the thread has ended by itself, up to the time limit.
    void waitForEnd();

    int32_t status_ = JobStatus::absent;
    ThreadHandle handle_;
    uint32_t threadId_ = 0;
    ThreadRoutine routine_;
    void* argument_;
};

} // namespace Velmor
