#pragma once

#include "process/Process.h"

#include <cstdint>

namespace Velmor {

/// The records beside the usage record. The sources of modules and performance figures aren't part of
/// the collector yet: the calls stand where their records belong, and write nothing.

/// Writes the record of a module that the process has unloaded.
void logModule(const ProcessPointer& process, const ModuleRecord& module);

/// Writes what the performance counters of a process have gathered; `dumpTime` 0 for a slice or an end.
void logPerfMonData(const ProcessPointer& process, int32_t dumpTime);

/// What is to be written before the file "perfmon" is delivered.
void dumpPerfMon();

} // namespace Velmor
