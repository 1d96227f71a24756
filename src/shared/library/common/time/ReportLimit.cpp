#include "shared/library/common/time/ReportLimit.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <utility>

namespace Velmor {

bool ReportLimit::passes(uint32_t& count) {
    ++count_;
    const uint32_t now = platform().clock->ticks();
    if (hasReported_ && now - reported_ < pause_)
        return false;
    hasReported_ = true;
    reported_ = now;
    count = std::exchange(count_, 0);
    return true;
}

} // namespace Velmor
