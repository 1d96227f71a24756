#include "shared/library/common/time/Timer.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

namespace Velmor {

void Timer::sleep(uint32_t milliseconds) {
    platform().clock->sleep(milliseconds);
}

} // namespace Velmor
