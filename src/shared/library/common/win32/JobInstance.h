#pragma once

#include <cstdint>

namespace Velmor {

/// The states of a job, and the answers of `getExitCode`. The gaps belong to no state.
namespace JobStatus {
constexpr int32_t ended = 11;      // by itself
constexpr int32_t terminated = 12; // by force
constexpr int32_t stopped = 13;    // after it was asked to
constexpr int32_t absent = 14;     // never started, or the handle is invalid
constexpr int32_t running = 17;
constexpr int32_t terminationFailed = 18; // in the destructor
constexpr int32_t stateUnreadable = 20;   // in the destructor
constexpr int32_t exitCodeDelivered = 25; // of `getExitCode`
constexpr int32_t systemError = 1000;     // of `getExitCode`: plus the native error
} // namespace JobStatus

/// The handle of a unit of work that runs beside the caller. Failures are thrown as `JobException`.
class JobInstance {
public:
    /// Starts the work, anew if it ran before.
    virtual void execute() = 0;

    /// Holds the work where it stands. Returns how often it is held now, or 0 if it has ended.
    virtual uint32_t suspend() = 0;

    /// Takes one hold away. Returns how often it was held before.
    virtual uint32_t resume() = 0;

    /// Asks the work to end, waits a second, then ends it by force. Returns 1 if it ran, else 0.
    virtual int32_t stop() = 0;

    /// A `JobStatus`.
    virtual int32_t getStatus() = 0;

    /// `running`, `absent`, `systemError` + n, or `exitCodeDelivered`, with which alone `code` is written.
    virtual int32_t getExitCode(uint32_t& code) = 0;

    virtual ~JobInstance() = default;
};

} // namespace Velmor
