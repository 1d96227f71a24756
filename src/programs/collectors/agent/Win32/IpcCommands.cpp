#include "programs/collectors/agent/Win32/IpcCommands.h"

#include "platform/Accounts.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Velmor {

namespace {
// A reader that stands still gets no reply after its first one: those who wait behind it want theirs.
constexpr SendPatience replyPatience{300, 100};

std::string nameOf(const MailslotSender& sender) {
    std::string user = "?";
    std::string domain;
    uint32_t error = 0;
    if (!sender.user.empty())
        platform().accounts->lookup(sender.user, user, domain, error);
    return user;
}

void noteOrder(const std::string& command, size_t count, const MailslotSender& sender) {
    agentLogger().notice(AgentMessage::commandTaken, command, nameOf(sender), std::to_string(sender.process),
                         std::to_string(count));
}

bool isQuestion(std::string_view command) {
    return command == CommandWord::sendProcessInfo || command == CommandWord::sendStatus;
}
} // namespace

void IpcCommands::ipcCallback(const std::vector<IPCMessage>& messages) {
    std::vector<std::pair<std::string, Requests>> commands; // in the order of their first requests
    for (const IPCMessage& message : messages) {
        if (!isCommand(message))
            continue;
        auto known =
            std::find_if(commands.begin(), commands.end(), [&](const auto& c) { return c.first == message.text; });
        if (known == commands.end())
            known = commands.insert(commands.end(), {message.text, {}});
        known->second.push_back(&message);
    }
    // What only asks isn't held up by what takes time.
    std::stable_partition(commands.begin(), commands.end(), [](const auto& c) { return isQuestion(c.first); });
    for (const auto& [command, requests] : commands)
        carryOut(command, requests);
}

bool IpcCommands::isCommand(const IPCMessage& message) {
    if (agentLogger().passes(2))
        agentLogger().debug(2, "IPC: Received message \"%s\".", printable(message.type));
    if (message.type != MessageType::command) {
        agentLogger().debug(1, "IPC: Received an unknown type.");
        return false;
    }
    if (agentLogger().passes(3))
        agentLogger().debug(3, "IPC: Received command \"%s\".", printable(message.text));
    const auto isWord = [&](std::string_view word) { return message.text == word; };
    if (!std::any_of(CommandWord::all.begin(), CommandWord::all.end(), isWord)) {
        agentLogger().debug(1, "IPC: Received an unknown command.");
        return false;
    }
    if (message.sender.mayCommand)
        return true;
    uint32_t count = 0;
    if (refusals_.passes(count))
        agentLogger().warning(AgentMessage::commandRefused, message.text, nameOf(message.sender),
                              std::to_string(message.sender.process), std::to_string(count));
    return false;
}

void IpcCommands::carryOut(const std::string& command, const Requests& requests) {
    const MailslotSender& first = requests.front()->sender;
    if (command == CommandWord::sendProcessInfo)
        return sendProcessInfo(requests);
    if (command == CommandWord::sendStatus)
        return reply(requests, statusSource_ ? statusSource_() : "");
    noteOrder(command, requests.size(), first);
    if (command == CommandWord::die) {
        agentLogger().debug(3, "Quitting.");
        programState().quitFlag = 1;
    } else if (command == CommandWord::dump) {
        dump(requests);
    } else {
        reconfigure(requests);
    }
}

/// Those who want an answer get it when all is done; others never got one.
void IpcCommands::reconfigure(const Requests& requests) {
    agentLogger().debug(1, "Reconfiguring...");
    {
        const TimedMonopolyHold hold(waitingLock_);
        for (const IPCMessage* request : requests)
            if (!request->replyTo.empty())
                waiting_.push_back(*request);
    }
    programState().reconfigureFlag = 1;
}

std::vector<IPCMessage> IpcCommands::takeReconfigurations() {
    const TimedMonopolyHold hold(waitingLock_);
    return std::exchange(waiting_, {});
}

void IpcCommands::answerReconfigurations(const std::vector<IPCMessage>& requests, const std::string& outcome) {
    Requests list;
    for (const IPCMessage& request : requests)
        list.push_back(&request);
    reply(list, outcome);
}

void IpcCommands::sendProcessInfo(const Requests& requests) {
    agentLogger().debug(3, "IPC: Sending main thread ID as requested...");
    reply(requests,
          std::to_string(platform().machine->processId()) + "," + std::to_string(programState().mainThreadId.load()));
    agentLogger().debug(3, "IPC: Main thread ID sent.");
}

void IpcCommands::dump(const Requests& requests) {
    agentLogger().debug(3, "IPC: Dumping data as requested...");
    {
        const MonopolyHold hold(programState().deliveryMonopoly);
        deliverAll(false);
    }
    agentLogger().debug(3, "IPC: Reporting success to Velmor Core.");
    reply(requests, "");
}

/// Replies to each request. A name that has failed once is not tried again: none of its replies would arrive.
void IpcCommands::reply(const Requests& requests, const std::string& text) {
    std::set<std::string> failed;
    for (const IPCMessage* request : requests) {
        if (failed.contains(request->replyTo))
            continue;
        try {
            IPCClient(request->replyTo, replyPatience)
                .send(MessageType::reply, request->reference, text, FamilyName::collector);
        } catch (IPCException& failure) {
            failure.addPosition(__FILE__, __LINE__);
            failed.insert(request->replyTo);
            reportReply(failure);
        }
    }
}

void IpcCommands::reportReply(const IPCException& failure) {
    uint32_t count = 0;
    if (!failedReplies_.passes(count))
        return;
    agentLogger().debug(1, failure.getFullDescription());
    agentLogger().error(AgentMessage::fileNotOpened, failure.getCodeText());
}

void IpcCommands::messagesRefused(uint64_t count) {
    flooded_ += count;
    uint32_t occasions = 0;
    if (floods_.passes(occasions))
        agentLogger().warning(AgentMessage::messagesRefused, std::to_string(std::exchange(flooded_, 0)));
}

void IpcCommands::slotRenewed() {
    agentLogger().warning(AgentMessage::slotRenewed, FamilyName::collector);
}

} // namespace Velmor
