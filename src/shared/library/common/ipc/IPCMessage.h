#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// A message of the family's format. On the wire each field, the last one too, is followed by the separator, and the
/// first field is the address; a field that the message doesn't have is empty.
struct IPCMessage {
    static constexpr char separator = '\x1b';
    static constexpr std::string_view address = "Velmor";

    std::string type;      // "COMMAND", "REPLY", "LOGMSG"
    std::string reference; // chosen by the sender; a reply carries it back
    std::string text;
    std::string replyTo; // name of the sender's mailslot
};

} // namespace Velmor
