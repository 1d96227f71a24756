#pragma once

#include <atomic>
#include <cstdint>

namespace Velmor {

/// One round of the module poller: looks for modules that tracked processes have unloaded, under the registry's lock.
/// `report` is the word of the thread's record; a stop ends the logging of the process at hand.
void modPoll(const std::atomic<int32_t>& report);

/// The module poller's thread; its argument is its `ThreadRecord`.
uint32_t modulePoller(void* record);

} // namespace Velmor
