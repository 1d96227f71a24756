#pragma once

#include "shared/library/common/errors/Exception.h"

namespace Velmor {

enum JobCode : int32_t {
    JB_NONE = 0,
    JB_NEVER_STARTED = 1,
    JB_UNABLE_TO_START = 2,
    JB_UNABLE_TO_TERMINATE = 3,
    JB_STILL_RUNNING = 4,
    JB_UNKNOWN_ERROR = 5,
    JB_MEM = 6,
    JB_PROCESS = 7,
    JB_THREAD = 8,
};

/// A failure to start, end or examine a thread.
class JobException : public Exception {
public:
    using Exception::Exception;

    void describe(std::string& out) const override;
    int32_t getCategory() const override { return 48; }
};

} // namespace Velmor
