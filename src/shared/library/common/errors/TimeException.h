#pragma once

#include "shared/library/common/errors/Exception.h"

namespace Velmor {

enum TimeCode : int32_t {
    TM_NONE = 0,
    TM_DAYS = 1,
    TM_HOURS = 2,
    TM_MINUTES = 3,
    TM_SECONDS = 4,
    TM_YEAR = 5,
    TM_MONTH = 6,
    TM_DAY = 7,
    TM_DATETIME = 8,
    TM_ANCIENT = 9,
    TM_INPUT = 10,
};

/// A time or time span whose text or fields make no sense.
class TimeException : public Exception {
public:
    using Exception::Exception;

    void describe(std::string& out) const override;
    int32_t getCategory() const override { return 4; }
};

} // namespace Velmor
