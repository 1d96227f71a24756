// Lines in which the kernel tells of a process, of any bytes.

#include "platform/linux/processes/ProcFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    ProcStat stat;
    parseProcStat(line, stat);
    pathOfMapping(line, 1);
    return 0;
}
