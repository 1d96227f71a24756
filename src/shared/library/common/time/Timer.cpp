#include "shared/library/common/time/Timer.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

namespace Velmor {

void Timer::sleep(uint32_t milliseconds) {
    platform().clock->sleep(milliseconds);
}

bool Timer::waitUntil(uint32_t limit, uint32_t step, const std::function<bool()>& condition) {
    for (uint32_t waited = 0; !condition(); waited += step) {
        if (waited >= limit)
            return false;
        sleep(step);
    }
    return true;
}

} // namespace Velmor
