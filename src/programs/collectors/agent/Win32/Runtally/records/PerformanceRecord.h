#pragma once

#include "process/Process.h"

#include <cstdint>

namespace Velmor {

/// Writes what the counters of a monitored process have gathered since its record before, if the rules want it.
/// `dumpTime` is the moment of a dump in seconds since 1970, which starts the gathering anew; 0 for a slice, which
/// writes nothing, or the end of the process. The process is checked out.
void logPerfMonData(const ProcessPointer& process, int32_t dumpTime);

/// Gives each monitored process a record, before the file "perfmon" is delivered.
void dumpPerfMon();

} // namespace Velmor
