#include "shared/library/common/ipc/IPCClient.h"

#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCMessage.h"

namespace Velmor {

bool IPCClient::send(std::string_view type, std::string_view reference, std::string_view text,
                     std::string_view replyTo) {
    const std::string line =
        IPCMessage{std::string(type), std::string(reference), std::string(text), std::string(replyTo), {}}.toLine();
    try {
        if (!channel_)
            channel_ = std::make_unique<MailSlot>(MailSlotMode::sender, target_, patience_);
        return channel_->send(line);
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        throw;
    }
}

} // namespace Velmor
