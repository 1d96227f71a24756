#include "programs/collectors/agent/Win32/Runtally/state/LossReport.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "process/events/KernelTracer.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"

#include <string>

namespace Velmor {

namespace {
constexpr uint32_t lookInterval = 100;     // milliseconds
constexpr uint32_t reportInterval = 60000; // milliseconds
} // namespace

void LossReport::look() {
    const uint32_t now = platform().clock->ticks();
    if (now - lastLook_ < lookInterval)
        return;
    lastLook_ = now;
    ask();
    if (reported_ == 0 || now - lastReport_ >= reportInterval)
        tell();
}

void LossReport::finish() {
    ask();
    tell();
}

void LossReport::ask() {
    const uint64_t lost = KernelTracer::eventsLost();
    if (lost < lost_) // a new session counts anew
        reported_ = 0;
    (lost == reported_ ? complete_ : lastSeen_).setNow();
    lost_ = lost;
}

void LossReport::tell() {
    if (lost_ == reported_)
        return;
    runtallyState().logger.warning(RuntallyMessage::eventsLost, std::to_string(lost_ - reported_),
                                   std::to_string(lost_), complete_.toString(false, false),
                                   lastSeen_.toString(false, false));
    reported_ = lost_;
    complete_ = lastSeen_;
    lastReport_ = platform().clock->ticks();
}

} // namespace Velmor
