#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// The owner of a mailslot; destroying it gives the name up.
class MailslotReader {
public:
    virtual ~MailslotReader() = default;

    /// Takes all messages that wait, in the order of arrival, without ever blocking. Each is what one write sent.
    /// False on failure; what was taken until then is in `messages`.
    virtual bool read(std::vector<std::string>& messages) = 0;
};

/// A way to write into somebody's mailslot.
class MailslotWriter {
public:
    virtual ~MailslotWriter() = default;

    /// Sends one message whole. False with `error` if nobody owns the name any more or the message is too long.
    virtual bool write(std::string_view message, uint32_t& error) = 0;
};

/// Named channels with many writers and one reader on the machine. Any user's process may send a message; whether it
/// may also take its turn among the family's programs is a matter of the lock that these use.
class Mailslots {
public:
    virtual ~Mailslots() = default;

    /// Owns `name`. Empty with `error` if a live reader has it or it can't be made; one left by a dead reader is
    /// taken over.
    virtual std::unique_ptr<MailslotReader> create(std::string_view name, uint32_t& error) = 0;

    /// Empty with `error` if nobody owns `name`.
    virtual std::unique_ptr<MailslotWriter> open(std::string_view name, uint32_t& error) = 0;

    /// The system's own words for an error number, without a line break.
    virtual std::string errorText(uint32_t error) = 0;
};

} // namespace Velmor
