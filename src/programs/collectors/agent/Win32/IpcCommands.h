#pragma once

#include "shared/library/common/ipc/IPCServer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/ReportLimit.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Velmor {

class IPCException;

/// Carries out the commands of the family's other programs, on the listener's thread; a request that asks for one gets
/// a reply. Commands that are the same and wait together are carried out once, for all who asked. Those of users who
/// may not command are refused; nobody is told but the log.
class IpcCommands : public IPCListener {
public:
    void ipcCallback(const std::vector<IPCMessage>& messages) override;
    void messagesRefused(uint64_t count) override;
    void slotRenewed() override;

    /// What an answer to a question after the state says; before the first command.
    void setStatusSource(std::function<std::string()> source) { statusSource_ = std::move(source); }

    /// The requests for a reconfiguration that wait for the next one. For the thread that carries it out.
    std::vector<IPCMessage> takeReconfigurations();
    /// Tells those who asked for it what became of it.
    void answerReconfigurations(const std::vector<IPCMessage>& requests, const std::string& outcome);

private:
    using Requests = std::vector<const IPCMessage*>; // of one command, the first one first

    bool isCommand(const IPCMessage& message);
    void carryOut(const std::string& command, const Requests& requests);
    void sendProcessInfo(const Requests& requests);
    void dump(const Requests& requests);
    void reconfigure(const Requests& requests);
    void reply(const Requests& requests, const std::string& text);
    void reportReply(const IPCException& failure);

    std::function<std::string()> statusSource_;
    Monopoly waitingLock_; // guards the next
    std::vector<IPCMessage> waiting_;
    ReportLimit refusals_;
    ReportLimit failedReplies_;
    ReportLimit floods_;
    uint64_t flooded_ = 0; // messages that could not be kept, since the last report
};

} // namespace Velmor
