#include "platform/linux/machine/LinuxClock.h"

#include "platform/linux/threads/Checkpoint.h"

#include <cerrno>
#include <ctime>
#include <sched.h>

namespace Velmor {

namespace {
CalendarFields fieldsOf(const tm& broken) {
    CalendarFields fields;
    fields.year = broken.tm_year + 1900;
    fields.month = broken.tm_mon + 1;
    fields.day = broken.tm_mday;
    fields.weekday = (broken.tm_wday + 6) % 7; // the system's week begins on Sunday
    fields.hour = broken.tm_hour;
    fields.minute = broken.tm_min;
    fields.second = broken.tm_sec;
    return fields;
}
} // namespace

LinuxClock::LinuxClock() {
    tzset();
}

int32_t LinuxClock::now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<int32_t>(time.tv_sec);
}

uint32_t LinuxClock::ticks() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint32_t>(time.tv_sec * 1000 + time.tv_nsec / 1000000);
}

void LinuxClock::sleep(uint32_t milliseconds) {
    checkpoint();
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (end.tv_nsec >= 1000000000) {
        ++end.tv_sec;
        end.tv_nsec -= 1000000000;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR)
        checkpoint();
    checkpoint();
}

CalendarFields LinuxClock::utc(int32_t seconds) {
    const time_t time = seconds;
    tm broken{};
    gmtime_r(&time, &broken);
    return fieldsOf(broken);
}

CalendarFields LinuxClock::local(int32_t seconds) {
    const StopDeferral deferral; // the zone rules have a lock of their own
    const time_t time = seconds;
    tm broken{};
    localtime_r(&time, &broken);
    return fieldsOf(broken);
}

} // namespace Velmor
