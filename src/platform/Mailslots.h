#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Who sent a message, where the system tells it.
struct MailslotSender {
    std::string user; // its SID; empty if the system doesn't tell
    uint32_t process = 0;
    /// Whether it is the administrator, the reader's own user, or a member of the group that the slot is for. Where the
    /// system doesn't tell who sent a message, the slot's access list has decided, and this is true.
    bool mayCommand = true;
};

struct MailslotMessage {
    std::string text;
    MailslotSender sender;
};

/// Whose processes may write into a slot.
enum class MailslotAccess : uint8_t {
    group,    // those of the slot's owner, of the family's group and of the administrator
    everyone, // of every user of the machine; a reader must then look at `mayCommand`
};

/// The owner of a mailslot; destroying it gives the name up.
class MailslotReader {
public:
    virtual ~MailslotReader() = default;

    /// Takes all messages that wait, in the order of arrival, without ever blocking. Each is what one write sent.
    /// False on failure; what was taken until then is in `messages`.
    virtual bool read(std::vector<MailslotMessage>& messages) = 0;

    /// How many messages were refused since the last call, being too long or more than are kept.
    virtual uint64_t takeRefused() = 0;

    /// False once the name leads to this reader no more, since somebody took the slot away.
    virtual bool isReachable() = 0;
};

/// A way to write into somebody's mailslot.
class MailslotWriter {
public:
    virtual ~MailslotWriter() = default;

    /// Sends one message whole. False with `error` if nobody owns the name any more, the message is too long (87), or
    /// the reader has taken nothing for the writer's patience (258).
    virtual bool write(std::string_view message, uint32_t& error) = 0;
};

/// Named channels with many writers and one reader on the machine. A reader keeps 10,000 messages of one sender, and
/// some more for the others, between two reads.
class Mailslots {
public:
    /// Milliseconds for which a write waits for a reader that stands still, if nothing else is said.
    static constexpr uint32_t usualPatience = 500;

    virtual ~Mailslots() = default;

    /// Owns `name`. Empty with `error` if a live reader has it or it can't be made; one left by a dead reader is
    /// taken over. A system that can only set an access list sets one for `access`.
    virtual std::unique_ptr<MailslotReader> create(std::string_view name, MailslotAccess access, uint32_t& error) = 0;

    /// Empty with `error` if nobody owns `name`, or this user may not write there (5). `patience` in milliseconds; with
    /// 0 a write never waits.
    virtual std::unique_ptr<MailslotWriter> open(std::string_view name, uint32_t patience, uint32_t& error) = 0;

    /// Whether readers will take commands of this user. `group` is the name of the group to be in.
    virtual bool mayCommand(std::string& group) = 0;

    /// The system's own words for an error number, without a line break.
    virtual std::string errorText(uint32_t error) = 0;
};

} // namespace Velmor
