#pragma once

#include "shared/library/common/configuration/ConfReader.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/LogMessenger.h"
#include "shared/library/logger/LoggerCentre.h"
#include "shared/library/logger/LoggerUnit.h"

#include <cstdint>
#include <string>

namespace Velmor {

/// A program's logging objects, and what they are made from.
struct LoggerContext {
    std::string logDirectory; // filled by `startLogging`
    std::string debugLogName;
    int32_t programId = LogProgram::unknown;
    int32_t moduleId = LogModule::unknown;
    SmartPointer<LoggerCentre> centre;
    SmartPointer<LogMessenger> messenger;
    SmartPointer<LoggerUnit> logger;
    SmartPointer<ConfReader> conf;
};

/// Makes messenger, centre and unit from the registry's start-up values; messages may be written from its return on.
/// With a unit already there it is `configureLogging`. False if there is no unit in the end.
bool startLogging(LoggerContext& context);

/// Applies the configuration file's logging keys. False without a unit.
bool configureLogging(LoggerContext& context);

} // namespace Velmor
