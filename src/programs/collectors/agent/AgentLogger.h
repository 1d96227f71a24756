#pragma once

#include "shared/library/logger/Logger.h"

namespace Velmor {

/// What the `Agent` classes write through, `LogFile` and the data delivery among them.
Logger& agentLogger();

} // namespace Velmor
