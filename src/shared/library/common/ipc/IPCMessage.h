#pragma once

#include "platform/Mailslots.h"

#include <array>
#include <string>
#include <string_view>

namespace Velmor {

/// The names by which the family's programs find each other.
namespace FamilyName {
constexpr std::string_view collector = "Velmor_Runtally"; // mailslots
constexpr std::string_view core = "Velmor_Core";
constexpr std::string_view turn = "Velmor_MailSlot"; // the lock by which senders take turns
} // namespace FamilyName

/// The kinds of messages.
namespace MessageType {
constexpr std::string_view command = "COMMAND";
constexpr std::string_view reply = "REPLY";
constexpr std::string_view logMessage = "LOGMSG";
} // namespace MessageType

/// What the collector can be told to do.
namespace CommandWord {
constexpr std::string_view die = "DIE";
constexpr std::string_view sendProcessInfo = "SEND_PROCESS_INFO";
constexpr std::string_view dump = "RUNTALLYDUMP";
constexpr std::string_view reconfigure = "RECONFIG";
constexpr std::string_view sendStatus = "SEND_STATUS";
inline constexpr std::array all{die, sendProcessInfo, dump, reconfigure, sendStatus};
} // namespace CommandWord

/// A message of the family's format. On the wire each field, the last one too, is followed by the separator, and the
/// first field is the address; a field that the message doesn't have is empty.
struct IPCMessage {
    static constexpr char separator = '\x1b';
    static constexpr std::string_view address = "Velmor";

    std::string type;
    std::string reference; // chosen by the sender; a reply carries it back
    std::string text;
    std::string replyTo;   // name of the sender's mailslot
    MailslotSender sender; // of a message that was received

    /// The wire form; an empty `replyTo` is left out with its separator. No field may hold the separator.
    std::string toLine() const;
    /// Takes a wire form apart. False if it isn't addressed to the family; fields that are missing are empty.
    bool fromLine(std::string_view line);
};

} // namespace Velmor
