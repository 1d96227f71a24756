#include "shared/library/logger/LogMessengerIPC.h"

#include "shared/library/common/IPCClient.h"
#include "shared/library/common/IPCException.h"
#include "shared/library/logger/LogCommons.h"

namespace Velmor {

LogMessengerIPC::LogMessengerIPC() = default;
LogMessengerIPC::~LogMessengerIPC() = default;

bool LogMessengerIPC::post(const std::string& text) {
    const bool written = LogMessenger::post(text);
    if (LogCommons::isDebugMessage(text))
        return written;
    return forward(text) && written;
}

bool LogMessengerIPC::forward(const std::string& text) {
    const MonopolyHold hold(sending_);
    try {
        if (!client_)
            client_ = std::make_unique<IPCClient>("Velmor_Core");
        return client_->send("LOGMSG", "", text, "");
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
    } catch (...) { // NOLINT(bugprone-empty-catch): a message about a message that can't be sent would follow it
    }
    return false;
}

} // namespace Velmor
