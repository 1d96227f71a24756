#include "programs/runtallyctl/Commands.h"

#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Mailslots.h"
#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/logger/LogCommons.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>

namespace Velmor {

namespace {
constexpr uint32_t lookPause = 50; // milliseconds

/// Whether this user may command the collector, who would get no answer otherwise.
bool mayCommand() {
    std::string group;
    if (platform().mailslots->mayCommand(group))
        return true;
    std::cerr
        << "Commands are taken from root, from the user that the collector runs as, and from members of the group "
        << group << "; be one of them\n";
    return false;
}

bool send(const std::string& command, const std::string& reference, const std::string& replyTo) {
    try {
        IPCClient(FamilyName::collector).send(MessageType::command, reference, command, replyTo);
        return true;
    } catch (const IPCException& failure) {
        std::cerr << "No collector listens on this machine, or it can't be reached now (" << failure.getDescription()
                  << ")\n";
        return false;
    }
}

/// Looks for messages until `take` answers true, or for `milliseconds`; false then.
bool receiveUntil(MailSlot& slot, uint32_t milliseconds, const std::function<bool(const IPCMessage&)>& take) {
    const uint32_t begin = platform().clock->ticks();
    while (platform().clock->ticks() - begin < milliseconds) {
        std::vector<std::string> lines;
        slot.receive(lines);
        for (const std::string& line : lines) {
            IPCMessage message;
            if (message.fromLine(line) && take(message))
                return true;
        }
        Timer::sleep(lookPause);
    }
    return false;
}

void printMessage(const LogCommons& catalogue, const IPCMessage& message) {
    LogMessage decoded;
    if (message.type != MessageType::logMessage || !LogCommons::decodeMessage(message.text, decoded))
        return;
    std::string wording;
    const bool found = catalogue.findMessage(decoded.module, decoded.messageId, wording);
    if (found) {
        LogCommons::formatMessage(wording, decoded.text);
        decoded.text = wording;
    }
    std::cout << printable(LogCommons::formatLine(decoded, found)) << std::endl; // a reader may follow at once
}
/// The core service's mailslot; null if it is somebody else's.
std::unique_ptr<MailSlot> ownCoreSlot() {
    try {
        return std::make_unique<MailSlot>(MailSlotMode::receiver, FamilyName::core);
    } catch (const IPCException& failure) {
        std::cerr << "The mailslot " << FamilyName::core << " can't be had (error " << failure.getDescription()
                  << "): the core service, or somebody else, listens on it already\n";
        return nullptr;
    }
}
} // namespace

int sendCommand(const std::string& command) {
    if (!mayCommand())
        return CommandStatus::notAllowed;
    return send(command, "", "") ? CommandStatus::done : CommandStatus::noAnswer;
}

int ask(const std::string& command, int32_t timeout, std::string& answer) {
    if (!mayCommand())
        return CommandStatus::notAllowed;
    const std::string own = "Velmor_ctl_" + std::to_string(platform().machine->processId());
    MailSlot slot(MailSlotMode::receiver, own);
    if (!send(command, own, own))
        return CommandStatus::noAnswer;
    const bool answered = receiveUntil(slot, static_cast<uint32_t>(timeout) * 1000, [&](const IPCMessage& message) {
        if (message.type != MessageType::reply || message.reference != own)
            return false;
        answer = message.text;
        return true;
    });
    if (answered)
        return CommandStatus::done;
    std::cerr << "The collector hasn't answered within " << timeout << " s\n";
    return CommandStatus::noAnswer;
}

int sendAndWait(const std::string& command, int32_t timeout) {
    std::string answer;
    const int status = ask(command, timeout, answer);
    if (status == CommandStatus::done)
        std::cout << (answer.empty() ? "done" : printable(answer)) << '\n';
    return status;
}

int printInfo(int32_t timeout, bool asJson) {
    std::string answer;
    const int status = ask(std::string(CommandWord::sendProcessInfo), timeout, answer);
    if (status != CommandStatus::done)
        return status;
    const size_t comma = std::min(answer.find(','), answer.size());
    const std::string process = printable(answer.substr(0, comma));
    const std::string thread = printable(answer.substr(std::min(comma + 1, answer.size())));
    if (asJson)
        std::cout << "{\"process\":" << process << ",\"mainThread\":" << thread << "}\n";
    else
        std::cout << "process " << process << ", main thread " << thread << '\n';
    return status;
}

int listen(const std::string& catalogue, int32_t seconds) {
    LogCommons messages;
    if (messages.loadMessages(catalogue, "all").loaded.empty())
        std::cerr << "There is no message catalogue in \"" << catalogue
                  << "\"; messages come with their numbers only\n";
    platform().messageQueues->receiveSystemRequests();
    const auto slot = ownCoreSlot();
    if (!slot)
        return CommandStatus::failed;
    const uint32_t begin = platform().clock->ticks();
    uint32_t request = 0;
    while (std::cout && !platform().messageQueues->peek(request)) {
        if (seconds > 0 && platform().clock->ticks() - begin >= static_cast<uint32_t>(seconds) * 1000)
            break;
        receiveUntil(*slot, 2 * lookPause, [&](const IPCMessage& message) {
            printMessage(messages, message);
            return false;
        });
    }
    return CommandStatus::done;
}

} // namespace Velmor
