#pragma once

#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/text/ParamStream.h"
#include "shared/library/logger/LoggerCentre.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

class FileException;

/// The handle of one module of the program on the logging system. A message that doesn't pass the level in force costs
/// one comparison and answers true. Any thread may write.
class LoggerUnit {
public:
    LoggerUnit(const SmartPointer<LoggerCentre>& centre, int32_t module);
    LoggerUnit(const LoggerUnit&) = delete;
    LoggerUnit& operator=(const LoggerUnit&) = delete;
    virtual ~LoggerUnit();

    /// Debug messages, for the developers' eyes: levels 0 to 5, kept in the debug file only.
    bool debug(int32_t level, std::string_view text);
    bool debug(int32_t level, std::string_view format, const ParamStream& parameters);

    /// Log messages: a number of the catalogue and its parameters, kept in the debug file and forwarded.
    bool notice(int32_t messageId, const ParamStream& parameters = {});
    bool warning(int32_t messageId, const ParamStream& parameters = {});
    bool error(int32_t messageId, const ParamStream& parameters = {});
    bool critical(int32_t messageId, const ParamStream& parameters);
    bool fatal(int32_t messageId, const ParamStream& parameters = {});

    /// Tells the first line of the process that the debug file didn't take on standard error; the log can't.
    static void tellLost(const FileException& failure);

    /// The settings of the whole program. Levels outside 0 to 5 are ignored.
    static void setDebugLevel(int32_t level);
    static int32_t getDebugLevel();
    static void setSeverityLevel(int32_t severity);
    static void setTimeMode(int32_t mode);  // 1 local, 2 zulu, 0 anything else
    static void setShowThreadId(bool show); // debug texts get the thread's id in front
    static bool getShowThreadId();

private:
    bool log(int32_t severity, int32_t messageId, const ParamStream& parameters);

    int32_t module_;
    SmartPointer<LoggerCentre> centre_;
};

} // namespace Velmor
