#pragma once

#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/processes/TracedProcess.h"

#include <cstdint>
#include <deque>
#include <mutex>

namespace Velmor {

/// Starts and ends on their way from the session's thread to the one that reads them.
class TraceQueue {
public:
    struct Item {
        bool isStart;
        uint64_t timeStamp; // native
        TracedPointer process;
    };

    /// Whether so many wait that the kernel's buffers may rather fill.
    bool isFull();
    /// To be followed by `wake`.
    void push(Item item);
    /// Wakes the reader: for what was pushed, or for something else.
    void wake() const { news_.ring(); }

    /// Waits until there is an item, somebody wakes, or the time is up. True if `front` may be asked.
    bool await(int milliseconds);
    /// The oldest item; it stays the oldest until `pop`. False if there is none.
    bool front(Item& item);
    void pop();

private:
    bool isEmpty();

    std::mutex mutex_; // guards the next
    std::deque<Item> items_;
    WakeEvent news_;
};

} // namespace Velmor
