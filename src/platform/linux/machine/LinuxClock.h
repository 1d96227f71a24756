#pragma once

#include "platform/Clock.h"

namespace Velmor {

class LinuxClock : public Clock {
public:
    LinuxClock();
    int32_t now() override;
    uint32_t ticks() override;
    void sleep(uint32_t milliseconds) override;
    CalendarFields utc(int32_t seconds) override;
    CalendarFields local(int32_t seconds) override;
};

} // namespace Velmor
