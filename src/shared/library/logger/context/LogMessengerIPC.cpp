#include "shared/library/logger/context/LogMessengerIPC.h"

#include "platform/Clock.h"
#include "platform/Mailslots.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/logger/LogCommons.h"

#include <utility>

namespace Velmor {

namespace {
constexpr SendPatience noPatience{0, 0};
constexpr size_t mostWaiting = 1000;   // messages
constexpr int turnAttempts = 30;       // for one among the threads of this one
constexpr uint32_t turnPause = 10;     // milliseconds
constexpr uint32_t lostHolder = 20000; // milliseconds after which a thread that sends must have been ended by force

bool isListening() {
    uint32_t error = 0;
    return platform().mailslots->open(FamilyName::core, 0, error) != nullptr;
}
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
    if (sendAll() && send(text))
        return true;
    if (!isListening())
        return false;
    waiting_.push_back(text);
    for (; waiting_.size() > mostWaiting; waiting_.pop_front())
        ++fellOut_;
    return false;
}

/// True if nothing waits any more.
bool LogMessengerIPC::sendAll() {
    while (!waiting_.empty() && send(waiting_.front()))
        waiting_.pop_front();
    return waiting_.empty();
}

bool LogMessengerIPC::send(const std::string& text) {
    try {
        if (!client_)
            client_ = std::make_unique<IPCClient>(FamilyName::core, noPatience);
        return client_->send(MessageType::logMessage, "", text, "");
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
    } catch (...) { // NOLINT(bugprone-empty-catch): a message about a message that can't be sent would follow it
    }
    return false;
}

uint64_t LogMessengerIPC::sendWaiting() {
    if (!takeTurn())
        return 0;
    const MonopolyHold hold(sending_, std::adopt_lock);
    sendAll();
    return std::exchange(fellOut_, 0);
}

} // namespace Velmor
