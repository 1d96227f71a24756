#pragma once

#include "platform/KernelTrace.h"
#include "shared/library/logger/Logger.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace Velmor {

/// Owns the operating system's trace session of process events while it lives.
class KernelTracer {
public:
    /// Starts the session; one that a crash left is stopped first. A failure is a message and sets `quitFlag`.
    KernelTracer(const SmartPointer<LoggerUnit>& logger, std::atomic<uint8_t>& quitFlag);
    KernelTracer(const KernelTracer&) = delete;
    KernelTracer& operator=(const KernelTracer&) = delete;
    /// Stops the session, unless that has been done.
    virtual ~KernelTracer();

    /// What gets the events, one at a time, and what is asked regularly whether to go on. On the thread of `consume`.
    void setEventCallback(KernelTrace::EventCallback callback) { onEvent_ = std::move(callback); }
    void setBufferCallback(KernelTrace::BufferCallback callback) { onBuffer_ = std::move(callback); }
    /// What is asked in its place about the events that wait when it has said stop.
    void setRestCallback(KernelTrace::BufferCallback callback) { onRest_ = std::move(callback); }

    /// Reads until the session ends, or the buffer callback says so; then the session is stopped, and what was taken
    /// until then is handed over as well, as long as the rest callback agrees. A failure is a message.
    void consume();
    /// For the buffer callback, when it says stop: the session goes on, for a later `consume`.
    void keepSession() { keepsSession_ = true; }

    /// What the system could not keep since the session's start.
    struct Losses {
        uint64_t events = 0;
        uint64_t names = 0; // of executed programs
    };
    static Losses losses();

private:
    void stopStaleSession();
    void reportStart(uint32_t result);
    void stopSession();

    Logger logger_;
    std::atomic<uint8_t>& quitFlag_;
    KernelTrace::EventCallback onEvent_;
    KernelTrace::BufferCallback onBuffer_;
    KernelTrace::BufferCallback onRest_;
    bool keepsSession_ = false; // though the reading has been stopped
    bool isStopped_ = false;    // the session, by this object
};

} // namespace Velmor
