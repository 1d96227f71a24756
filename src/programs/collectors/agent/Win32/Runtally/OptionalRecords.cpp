#include "programs/collectors/agent/Win32/Runtally/OptionalRecords.h"

namespace Velmor {

void logModule(const ProcessPointer&, const ModuleRecord&) {}

void logPerfMonData(const ProcessPointer&, int32_t) {}

void dumpPerfMon() {}

} // namespace Velmor
