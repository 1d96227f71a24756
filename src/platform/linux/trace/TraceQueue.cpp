#include "platform/linux/trace/TraceQueue.h"

#include "platform/linux/threads/Checkpoint.h"

#include <poll.h>

namespace Velmor {

namespace {
constexpr size_t mostItems = 1000000;
}

bool TraceQueue::isFull() {
    const ServiceLock lock(mutex_);
    return items_.size() >= mostItems;
}

void TraceQueue::push(Item item) {
    const ServiceLock lock(mutex_);
    items_.push_back(std::move(item));
}

bool TraceQueue::isEmpty() {
    const ServiceLock lock(mutex_);
    return items_.empty();
}

bool TraceQueue::await(int milliseconds) {
    if (!isEmpty())
        return true;
    pollfd wanted{news_.descriptor(), POLLIN, 0};
    if (poll(&wanted, 1, milliseconds) > 0)
        news_.clear();
    return !isEmpty();
}

bool TraceQueue::front(Item& item) {
    const ServiceLock lock(mutex_);
    if (items_.empty())
        return false;
    item = items_.front();
    return true;
}

void TraceQueue::pop() {
    const ServiceLock lock(mutex_);
    items_.pop_front();
}

} // namespace Velmor
