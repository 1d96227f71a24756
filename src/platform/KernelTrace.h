#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Velmor {

/// A GUID as it lies in memory: the first three of its fields little-endian.
using TraceGuid = std::array<uint8_t, 16>;

constexpr uint32_t useGuidPointer = 0x00080000; // flag of an event: its class stands behind `guidPointer`

/// The types of events that bear news of processes.
namespace TraceEventType {
constexpr uint8_t start = 1;
constexpr uint8_t end = 2;
} // namespace TraceEventType

/// One event, valid while it is handed over.
struct TraceEvent {
    uint8_t type = 0; // of `TraceEventType`, or another that is no news
    uint16_t version = 0;
    uint32_t flags = 0;
    uint64_t timeStamp = 0; // 100-nanosecond units since 1601-01-01 UTC
    TraceGuid guid{};       // of the class that describes the payload
    const TraceGuid* guidPointer = nullptr;
    uint32_t instanceId = 0;
    uint32_t parentInstanceId = 0;
    uint32_t processId = 0; // in whose context it was written
    std::span<const uint8_t> payload;
};

/// What a session is to be, and what a query tells of it.
struct TraceProperties {
    uint32_t clientContext = 0; // 2: time stamps are system time
    uint32_t maximumFileSize = 0;
    uint32_t logFileMode = 0; // 0x100: events are read while they happen
    uint32_t flushTimer = 0;  // seconds after which a buffer that isn't full is handed over
    uint32_t enableFlags = 0; // 1: process events
    uint64_t eventsLost = 0;  // told by a query: how many could not be kept since the session's start
    uint64_t namesLost = 0;   // likewise of names of executed programs, beside events that told of the executions
};

/// A session that is open for reading.
class NativeTrace {
public:
    virtual ~NativeTrace() = default;
};
using TraceHandle = std::unique_ptr<NativeTrace>;

/// The operating system's trace sessions of process events, by name. Results are error numbers of the native API, 0
/// for success.
class KernelTrace {
public:
    using EventCallback = std::function<void(const TraceEvent& event)>;
    using BufferCallback = std::function<bool()>;

    virtual ~KernelTrace() = default;

    /// Succeeds if a session of that name runs, and fills `properties`.
    virtual uint32_t query(std::string_view name, TraceProperties& properties) = 0;

    /// 183 if one of that name runs. From its return on no start and no end of a process is missed unless it is
    /// counted as lost.
    virtual uint32_t start(std::string_view name, const TraceProperties& properties) = 0;
    virtual uint32_t stop(std::string_view name) = 0;

    /// Opens a running session for reading. On failure the handle is empty and `error` tells.
    virtual TraceHandle open(std::string_view name, uint32_t& error) = 0;

    /// Hands the events of the session over one by one, in order, on the calling thread, until the session ends and all
    /// of them have been, or `onBuffer` returns false, which is asked before each event and at least five times a
    /// second; the result is 1223 then, and a further call goes on with the next event. An event that has been begun
    /// with is finished with before the thread can be ended by force.
    virtual uint32_t process(const TraceHandle& trace, const EventCallback& onEvent,
                             const BufferCallback& onBuffer) = 0;
    virtual void close(TraceHandle& trace) = 0;

    /// How wide pointers in payloads are, in bytes: 4 or 8.
    virtual uint32_t pointerSize() = 0;

    /// In plain sentences, what keeps events from being had, or what they lack, and what to do; empty if all is well.
    /// Speaks of the last `start`.
    virtual std::string shortcomings() = 0;

    /// Whether a session could be started now; what it would lack, or why not, in plain sentences. Starts none.
    virtual bool canStart(std::string& shortcomings) = 0;
};

} // namespace Velmor
