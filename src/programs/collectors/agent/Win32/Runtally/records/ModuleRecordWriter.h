#pragma once

#include "process/ModuleRecord.h"
#include "process/Process.h"

namespace Velmor {

/// Writes the record of a module that the process has unloaded, if filter and rules want it. The process is checked
/// out, or not yet shared.
void logModule(const ProcessPointer& process, const ModuleRecord& module);

} // namespace Velmor
