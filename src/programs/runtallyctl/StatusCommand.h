#pragma once

#include <cstdint>

namespace Velmor {

struct StatusOptions {
    bool asJson = false;
    bool watches = false; // again each second, until it is interrupted or can't be had
    int32_t timeout = 10; // seconds for an answer
};

/// Asks the collector how it is, and prints that: a sentence first, or one JSON object. The exit status is 0 if all is
/// well, 1 if something was lost or a source lacks a right, else of `CommandStatus`.
int printStatus(const StatusOptions& options);

/// Has the collector read its configuration again, waits up to `timeout` seconds, and prints what is in force now. The
/// exit status is 1, with the reason on standard error, if the new one has a mistake and isn't; else of
/// `CommandStatus`.
int reconfigure(int32_t timeout);

} // namespace Velmor
