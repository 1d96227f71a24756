#pragma once

#include "process/Process.h"

namespace Velmor {

/// Writes the records of who used what for how long.
class UsageRecordWriter {
public:
    /// Writes the usage record of a process from its start to its end as they stand, if the rules want it.
    static void logProcessData(const ProcessPointer& process);
};

} // namespace Velmor
