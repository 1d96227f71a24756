#include "shared/library/common/ipc/MailSlot.h"

#include "platform/Errors.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/time/Timer.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr std::string_view sourceName = "shared\\library\\common\\win32\\MailSlot";
constexpr uint32_t noNetwork = 1231;
constexpr uint32_t quickTurns = 1000; // looks at the lock with no more than a yield between them
constexpr uint32_t slowPause = 1;     // milliseconds

[[noreturn]] void fail(IPCCode code, std::string description, int32_t line) {
    throw IPCException(code, std::move(description), sourceName, line);
}

/// The system's words without the line break that may end them.
std::string systemText(uint32_t error) {
    std::string text = platform().mailslots->errorText(error);
    while (!text.empty() && static_cast<unsigned char>(text.back()) < ' ')
        text.pop_back();
    return text;
}

MailslotAccess slotAccess() {
    std::string word;
    getResourceValue("MailslotAccess", word);
    return word == "everyone" ? MailslotAccess::everyone : MailslotAccess::group;
}

/// Holds the turn to write from construction to destruction.
class SendTurn {
public:
    SendTurn(Monopoly& lock, uint32_t limit) : lock_(lock) {
        // The holder is inside a single write, so a yielded processor is all the wait there should be. A lock that
        // stays out of reach is one that can't be had. Who may not take turns writes out of turn: a slot that is open
        // to him takes messages whole.
        const uint32_t looks = limit == 0 ? 0 : quickTurns + limit / slowPause;
        for (uint32_t i = 0; !lock_.enforce(); ++i) {
            if (lock_.getLastError() == NativeError::accessDenied)
                return;
            if (lock_.getLastError() != NativeError::alreadyExists || i >= looks)
                fail(IC_CANNOT_SEND, "Error " + std::to_string(lock_.getLastError()), __LINE__);
            Timer::sleep(i < quickTurns ? 0 : slowPause);
        }
    }
    SendTurn(const SendTurn&) = delete;
    SendTurn& operator=(const SendTurn&) = delete;
    ~SendTurn() { lock_.relax(); }

private:
    Monopoly& lock_;
};
} // namespace

MailSlot::MailSlot(MailSlotMode mode, std::string_view name, const SendPatience& patience)
    : IPC(mode), name_(name), patience_(patience), sendLock_(FamilyName::turn, NamedLockAccess::family) {
    if (mode_ != MailSlotMode::receiver)
        return;
    uint32_t error = NativeError::success;
    reader_ = platform().mailslots->create(name_, slotAccess(), error);
    if (!reader_)
        fail(IC_CANNOT_CREATE_COMM, std::to_string(error), __LINE__);
}

void MailSlot::open() {
    uint32_t error = NativeError::success;
    writer_ = platform().mailslots->open(name_, patience_.reader, error);
    if (!writer_)
        fail(IC_CANNOT_SEND, systemText(error), __LINE__);
}

bool MailSlot::send(std::string_view text) {
    if (mode_ == MailSlotMode::receiver)
        fail(IC_NOT_SENDER, "", __LINE__);
    if (!writer_)
        open();
    std::string message(text);
    message += '\0';
    uint32_t error = NativeError::success;
    bool written = false;
    {
        const SendTurn turn(sendLock_, patience_.turn);
        written = writer_->write(message, error);
    }
    if (written)
        return true;
    writer_.reset();
    fail(IC_CANNOT_SEND, "Error " + std::to_string(error) + (error == noNetwork ? " - No network" : ""), __LINE__);
}

void MailSlot::receive(std::vector<MailslotMessage>& list) {
    if (mode_ != MailSlotMode::receiver)
        fail(IC_NOT_RECEIVER, "", __LINE__);
    const bool complete = reader_->read(list);
    for (MailslotMessage& message : list)
        message.text.resize(std::min(message.text.size(), message.text.find('\0')));
    if (!complete)
        fail(IC_CANNOT_RECEIVE, "", __LINE__);
}

void MailSlot::receive(std::vector<std::string>& list) {
    std::vector<MailslotMessage> waiting;
    const auto append = [&] {
        for (MailslotMessage& message : waiting)
            list.push_back(std::move(message.text));
    };
    try {
        receive(waiting);
    } catch (...) {
        append();
        throw;
    }
    append();
}

} // namespace Velmor
