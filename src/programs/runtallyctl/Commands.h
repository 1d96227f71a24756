#pragma once

#include <cstdint>
#include <string>

namespace Velmor {

/// Exit statuses of the commands.
namespace CommandStatus {
constexpr int done = 0;
constexpr int failed = 1;     // the tool itself could not do its work, or the collector is not well
constexpr int noAnswer = 3;   // nobody listens, or no reply came within the time limit
constexpr int notAllowed = 4; // this user may not command
} // namespace CommandStatus

/// Sends a command that the collector doesn't answer.
int sendCommand(const std::string& command);

/// Sends a command and waits up to `timeout` seconds for the text of its reply.
int ask(const std::string& command, int32_t timeout, std::string& answer);

/// Sends a command and prints its reply, for which it waits up to `timeout` seconds.
int sendAndWait(const std::string& command, int32_t timeout);

/// Asks for the collector's process and main thread, and prints their ids; as JSON if asked for.
int printInfo(int32_t timeout, bool asJson);

/// Stands in for the core service: prints the numbered messages that arrive, with the wording of the catalogue in
/// `catalogue`, until it is interrupted or, if above 0, `seconds` have passed.
int listen(const std::string& catalogue, int32_t seconds);

} // namespace Velmor
