#include "shared/library/logger/LogMessengerIPC.h"

#include "platform/Clock.h"
#include "platform/Platform.h"
#include "shared/library/common/IPCClient.h"
#include "shared/library/common/IPCException.h"
#include "shared/library/logger/LogCommons.h"

namespace Velmor {

namespace {
constexpr uint32_t longSend = 1000;     // milliseconds after which a core service counts as standing still
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

bool LogMessengerIPC::forward(const std::string& text) {
    const TimedMonopolyHold hold(sending_);
    const uint32_t begin = platform().clock->ticks();
    if (isHeldUp_ && begin - heldUpSince_ < heldUpPause)
        return false;
    isHeldUp_ = false;
    try {
        if (!client_)
            client_ = std::make_unique<IPCClient>("Velmor_Core");
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
