#pragma once

#include "process/naming/ExeInfo.h"
#include "shared/library/logger/LoggerUnit.h"

#include <string>

namespace Velmor {

/// Reads what executable files say about themselves.
class SMScan {
public:
    /// The unit to write through; before the threads start.
    static void setLogger(const SmartPointer<LoggerUnit>& unit);

    /// Fills product name, description and version of `info` from the file's version resource. A path as a driver or
    /// the service manager gives it is translated first. False if the file says nothing.
    static bool getFileInformation(ExeInfo& info, const std::string& path);
};

} // namespace Velmor
