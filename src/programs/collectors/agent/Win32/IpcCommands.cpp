#include "programs/collectors/agent/Win32/IpcCommands.h"

#include "platform/Machine.h"
#include "platform/Platform.h"
#include "programs/collectors/agent/AgentLogger.h"
#include "programs/collectors/agent/AgentMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/ipc/IPCClient.h"
#include "shared/library/common/text/TextUtils.h"

namespace Velmor {

namespace {
void reply(const std::string& reference, const std::string& text, const std::string& replyTo) {
    IPCClient client(replyTo);
    client.send("REPLY", reference, text, collectorMailslot);
}

void sendProcessInfo(const std::string& reference, const std::string& replyTo) {
    agentLogger().debug(3, "IPC: Sending main thread ID as requested...");
    reply(reference,
          std::to_string(platform().machine->processId()) + "," + std::to_string(programState().mainThreadId.load()),
          replyTo);
    agentLogger().debug(3, "IPC: Main thread ID sent.");
}

void dump(const std::string& reference, const std::string& replyTo) {
    agentLogger().debug(3, "IPC: Dumping data as requested...");
    {
        const MonopolyHold hold(programState().deliveryMonopoly);
        deliverAll(false);
    }
    agentLogger().debug(3, "IPC: Reporting success to Velmor Core.");
    reply(reference, "", replyTo);
}

void carryOut(const std::string& command, const std::string& reference, const std::string& replyTo) {
    if (command == "DIE") {
        agentLogger().debug(3, "Quitting.");
        programState().quitFlag = 1;
    } else if (command == "SEND_PROCESS_INFO") {
        sendProcessInfo(reference, replyTo);
    } else if (command == "RUNTALLYDUMP") {
        dump(reference, replyTo);
    } else if (command == "RECONFIG") {
        agentLogger().debug(1, "Reconfiguring...");
        programState().reconfigureFlag = 1;
    } else {
        agentLogger().debug(1, "IPC: Received an unknown command.");
    }
}
} // namespace

void ipcCallback(const std::string& type, const std::string& reference, const std::string& text,
                 const std::string& replyTo) {
    if (agentLogger().passes(2))
        agentLogger().debug(2, "IPC: Received message \"%s\".", printable(type));
    if (type != "COMMAND") {
        agentLogger().debug(1, "IPC: Received an unknown type.");
        return;
    }
    if (agentLogger().passes(3))
        agentLogger().debug(3, "IPC: Received command \"%s\".", printable(text));
    try {
        carryOut(text, reference, replyTo);
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        agentLogger().debug(1, failure.getFullDescription());
        agentLogger().error(AgentMessage::fileNotOpened, failure.getCodeText());
    } catch (...) {
        agentLogger().error(AgentMessage::fileNotOpened, "UNKNOWN");
    }
}

} // namespace Velmor
