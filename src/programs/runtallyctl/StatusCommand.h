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

} // namespace Velmor
