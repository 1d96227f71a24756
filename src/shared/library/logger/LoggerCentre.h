#pragma once

#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/logger/LogMessenger.h"

#include <cstdint>

namespace Velmor {

struct LogMessage;

/// The one place of a program through which all its messages go: it stamps and encodes them and hands them to the
/// messenger. Any thread may send.
class LoggerCentre {
public:
    LoggerCentre(int32_t program, const SmartPointer<LogMessenger>& messenger)
        : program_(program), messenger_(messenger) {}
    virtual ~LoggerCentre();

    /// What the messenger answers; false if there is none. A `FileException` of the debug file passes through.
    bool send(LogMessage& message);

private:
    int32_t program_; // number of this program
    SmartPointer<LogMessenger> messenger_;
};

} // namespace Velmor
