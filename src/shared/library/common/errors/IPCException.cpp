#include "shared/library/common/errors/IPCException.h"

#include <array>

namespace Velmor {

namespace {
// In the order of IPCCode, from 0.
constexpr std::array<std::string_view, 8> texts{
    "No exception!",
    "Cannot find message file for IPC.",
    "Unable to create communication channel.",
    "Receiver cannot send.",
    "Sender cannot receive.",
    "Unable to send message.",
    "Unable to receive messages.",
    "Out of memory.",
};
} // namespace

void IPCException::describe(std::string& out) const {
    describeAs(out, "IPC", texts);
}

} // namespace Velmor
