#include "shared/library/common/ipc/IPCMessage.h"

#include "shared/library/common/text/TextUtils.h"

namespace Velmor {

std::string IPCMessage::toLine() const {
    std::string line;
    for (const std::string_view field :
         {address, std::string_view(type), std::string_view(reference), std::string_view(text)})
        line.append(field).push_back(separator);
    if (!replyTo.empty())
        line.append(replyTo).push_back(separator);
    return line;
}

bool IPCMessage::fromLine(std::string_view line) {
    std::string rest(line);
    if (firstField(rest, separator) != address)
        return false;
    for (std::string* field : {&type, &reference, &text, &replyTo})
        *field = firstField(rest, separator);
    return true;
}

} // namespace Velmor
