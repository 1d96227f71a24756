#include "shared/library/logger/context/LogMessengerIPC.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/logger/LogCommons.h"

namespace Velmor {

namespace {
constexpr uint32_t longSend = 250;      // milliseconds after which a core service counts as standing still
constexpr uint32_t turnLimit = 300;     // milliseconds for a turn among the programs of the machine
constexpr int turnAttempts = 30;        // for one among the threads of this one
constexpr uint32_t turnPause = 10;      // milliseconds
constexpr uint32_t lostHolder = 20000;  // milliseconds after which a thread that sends must have been ended by force
constexpr uint32_t heldUpPause = 60000; // milliseconds in which such a one gets no message
} // namespace

LogMessengerIPC::LogMessengerIPC() = default;
LogMessengerIPC::~LogMessengerIPC() = default;

bool LogMessengerIPC::post(const std::string& text) {
    const bool written = LogMessenger::post(text);
    if (LogCommons::isDebugMessage(text))
        return written;
    return forward(text) && written;
}

/// Takes `sending_`. Whoever posts may hold what others wait for, so it waits for moments only: a message that doesn't
/// get its turn stays in the file alone.
bool LogMessengerIPC::takeTurn() {
    bool busy = false;
    for (int i = 0; i < turnAttempts; ++i) {
        if (sending_.tryEnforce(busy)) {
            holder_ = 0;
            return true;
        }
        Timer::sleep(turnPause);
    }
    const uint32_t now = platform().clock->ticks();
    const uint32_t owner = sending_.getOwner();
    if (holder_.exchange(owner) != owner)
        holderSince_ = now;
    else if (owner != 0 && now - holderSince_ >= lostHolder) // 0: it has just let go
        sending_.reset();
    return false;
}

bool LogMessengerIPC::forward(const std::string& text) {
    if (!takeTurn())
        return false;
    const MonopolyHold hold(sending_, std::adopt_lock);
    const uint32_t begin = platform().clock->ticks();
    if (isHeldUp_ && begin - heldUpSince_ < heldUpPause)
        return false;
    isHeldUp_ = false;
    try {
        if (!client_)
            client_ = std::make_unique<IPCClient>("Velmor_Core", turnLimit);
        return client_->send("LOGMSG", "", text, "");
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
    } catch (...) { // NOLINT(bugprone-empty-catch): a message about a message that can't be sent would follow it
    }
    heldUpSince_ = platform().clock->ticks();
    isHeldUp_ = heldUpSince_ - begin >= longSend;
    return false;
}

} // namespace Velmor
