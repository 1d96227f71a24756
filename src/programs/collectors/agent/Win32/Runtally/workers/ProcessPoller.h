#pragma once

#include <cstdint>

namespace Velmor {

/// One round: reports what has started and ended since the round before. With events only the first does so; later ones
/// complete what has no name yet.
void procPoll();

/// The process poller's thread; its argument is its `ThreadRecord`.
uint32_t processPoller(void* record);

} // namespace Velmor
