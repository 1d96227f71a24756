// Messages of any bytes: the family's form, and log messages with their parameters.

#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/logger/LogCommons.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    IPCMessage message;
    if (message.fromLine(line) && message.toLine().size() > line.size() + 16)
        std::abort(); // nothing is added but separators
    LogMessage log;
    if (!LogCommons::decodeMessage(line, log))
        return 0;
    std::string format = "%s %i %f %% %";
    LogCommons::formatMessage(format, log.text);
    LogCommons::formatLine(log, false);
    return 0;
}
