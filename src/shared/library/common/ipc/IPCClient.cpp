#include "shared/library/common/ipc/IPCClient.h"

#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCMessage.h"

namespace Velmor {

bool IPCClient::send(std::string_view type, std::string_view reference, std::string_view text,
                     std::string_view replyTo) {
    std::string line;
    for (const std::string_view field : {IPCMessage::address, type, reference, text})
        line.append(field).push_back(IPCMessage::separator);
    if (!replyTo.empty())
        line.append(replyTo).push_back(IPCMessage::separator);
    try {
        if (!channel_)
            channel_ = std::make_unique<MailSlot>(MailSlotMode::sender, target_, turnLimit_);
        return channel_->send(line);
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        throw;
    }
}

} // namespace Velmor
