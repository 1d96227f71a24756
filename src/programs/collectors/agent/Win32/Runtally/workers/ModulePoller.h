#pragma once

#include "process/Process.h"

#include <atomic>
#include <cstdint>

namespace Velmor {

/// Writes the record of a module that the process has unloaded, if filter and rules want it. The process is checked
/// out, or not yet shared.
void logModule(const ProcessPointer& process, const ModuleRecord& module);

/// One round of the module poller: looks for modules that tracked processes have unloaded, under the registry's lock.
/// `report` is the word of the thread's record; a stop ends the logging of the process at hand.
void modPoll(const std::atomic<int32_t>& report);

/// The module poller's thread; its argument is its `ThreadRecord`.
uint32_t modulePoller(void* record);

} // namespace Velmor
