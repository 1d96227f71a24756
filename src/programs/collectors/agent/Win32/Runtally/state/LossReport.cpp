#include "programs/collectors/agent/Win32/Runtally/state/LossReport.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "process/events/KernelTracer.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "shared/library/common/system/LossBook.h"

#include <string>

namespace Velmor {

namespace {
constexpr uint32_t lookInterval = 100;     // milliseconds
constexpr uint32_t reportInterval = 60000; // milliseconds
} // namespace

LossReport::LossReport()
    : events_{RuntallyMessage::eventsLost, LossBook::Cause::events}, names_{RuntallyMessage::namesLost,
                                                                            LossBook::Cause::names} {}

void LossReport::look() {
    const uint32_t now = platform().clock->ticks();
    if (now - lastLook_ < lookInterval)
        return;
    lastLook_ = now;
    ask();
    events_.tellIfDue(now);
    names_.tellIfDue(now);
}

void LossReport::finish() {
    ask();
    events_.tell();
    names_.tell();
}

void LossReport::ask() {
    const KernelTracer::Losses losses = KernelTracer::losses();
    events_.take(losses.events);
    names_.take(losses.names);
}

void LossReport::Count::take(uint64_t now) {
    if (now < lost) { // a new session counts anew
        lost = 0;
        reported = 0;
    }
    if (now > lost)
        lossBook().add(cause, now - lost);
    (now == reported ? complete : lastSeen).setNow();
    lost = now;
}

void LossReport::Count::tellIfDue(uint32_t ticks) {
    if (reported == 0 || ticks - lastReport >= reportInterval)
        tell();
}

void LossReport::Count::tell() {
    if (lost == reported)
        return;
    runtallyState().logger.warning(message, std::to_string(lost - reported), std::to_string(lost),
                                   complete.toString(false, false), lastSeen.toString(false, false));
    reported = lost;
    complete = lastSeen;
    lastReport = platform().clock->ticks();
}

} // namespace Velmor
