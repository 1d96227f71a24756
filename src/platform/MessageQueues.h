#pragma once

#include <cstdint>

namespace Velmor {

/// Message numbers of the native API that the logic sends or receives.
namespace WindowMessage {
constexpr uint32_t destroy = 2;          // WM_DESTROY: a thread's request to end
constexpr uint32_t close = 16;           // WM_CLOSE: a user or the service manager ends the program
constexpr uint32_t queryEndSession = 17; // WM_QUERYENDSESSION
constexpr uint32_t quit = 18;            // WM_QUIT: ends the wait for messages
constexpr uint32_t settingChange = 26;   // WM_SETTINGCHANGE: the configuration is to be read again
} // namespace WindowMessage

/// One queue of numbers for each thread that asks for one.
class MessageQueues {
public:
    virtual ~MessageQueues() = default;

    /// Appends a message to a thread's queue. False if that thread has no queue: it never waited or peeked, or ended.
    virtual bool post(uint32_t threadId, uint32_t message) = 0;

    /// Takes the next message of the calling thread without waiting; false if there is none.
    virtual bool peek(uint32_t& message) = 0;

    /// Waits for the next message of the calling thread and takes it. False if it was `quit`.
    virtual bool wait(uint32_t& message) = 0;

    /// From now on the system's requests to the program arrive in the calling thread's queue: to end as `close`,
    /// to read the configuration again as `settingChange`.
    virtual void receiveSystemRequests() = 0;

    /// For a program that has nothing to finish: a request to end ends it at once.
    virtual void obeySystemRequests() = 0;
};

} // namespace Velmor
