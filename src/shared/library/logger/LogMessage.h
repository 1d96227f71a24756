#pragma once

#include "shared/library/common/time/DateTime.h"

#include <cstdint>
#include <string>

namespace Velmor {

/// A message on its way from a `LoggerUnit` to its destinations.
struct LogMessage {
    /// The number of a message that has none, as every debug message.
    static constexpr int32_t noMessageId = 99999;

    bool isLog = false;   // a numbered message; else a debug message
    int32_t program = 0;  // set by the centre
    int32_t module = 0;   // set by the unit
    DateTime time;        // the moment of the call
    int32_t timeMode = 0; // 1 local, 2 zulu, 0 anything else
    int32_t severity = 0; // of a numbered message
    int32_t level = 0;    // of a debug message
    int32_t messageId = noMessageId;
    std::string text; // the debug text, or the parameters as the text of a `ParamStream`
};

} // namespace Velmor
