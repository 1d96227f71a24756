#include "shared/library/common/ipc/IPCServer.h"

#include "platform/MessageQueues.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/IPCException.h"
#include "shared/library/common/errors/JobException.h"
#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/ipc/MailSlot.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/common/time/Timer.h"
#include "shared/library/logger/LogCommons.h"

#include <atomic>

namespace Velmor {

namespace {
constexpr int32_t statusInterval = 60; // seconds; also between two looks for a slot that was taken away
constexpr uint32_t turnPause = 1000;   // milliseconds
constexpr int stopAttempts = 10;
constexpr auto failedExitCode = static_cast<uint32_t>(-1);

/// The state of the process's one listener.
struct Listener {
    std::atomic<bool> stop{false}; // set to end the listener, which clears it on its way out
};
Listener listener;

/// Adds a message to those that are handed over, if it is for the family.
void take(const Logger& logger, MailslotMessage& received, std::vector<IPCMessage>& messages) {
    if (logger.passes(5))
        logger.debug(5, "IPC: Received message line \"%s\".", printable(received.text));
    IPCMessage message;
    if (!message.fromLine(received.text)) {
        logger.debug(4, "IPC: The message was not adressed to Velmor. Ignoring it.");
        return;
    }
    message.sender = std::move(received.sender);
    messages.push_back(std::move(message));
}

void receiveAndHandle(const Logger& logger, IPCListener& told, const std::string& name, MailSlot& slot) {
    std::vector<MailslotMessage> received;
    try {
        slot.receive(received);
        logger.debug(5, "IPC: Server \"%s\": Received %i message(s)", name, received.size());
    } catch (...) {
        logger.debug(1, "IPC: Server \"%s\": Failed to receive messages", name);
        received.clear();
    }
    if (const uint64_t refused = slot.takeRefused(); refused > 0)
        told.messagesRefused(refused);
    if (received.empty())
        return;
    logger.debug(4, "IPC: Server \"%s\": Received %i message(s)...", name, received.size());
    std::vector<IPCMessage> messages;
    for (MailslotMessage& message : received)
        take(logger, message, messages);
    if (!messages.empty())
        told.ipcCallback(messages);
}

/// A slot that somebody has taken away would never bring a command again.
void renewIfGone(const Logger& logger, IPCListener& told, const std::string& name, std::unique_ptr<MailSlot>& slot) {
    if (slot && slot->isReachable())
        return;
    slot.reset();
    try {
        slot = std::make_unique<MailSlot>(MailSlotMode::receiver, name);
        told.slotRenewed();
    } catch (const IPCException& failure) { // the next look tries again
        logger.debug(1, failure.getFullDescription());
    }
}

void runTurns(const Logger& logger, IPCListener& told, const std::string& name, std::unique_ptr<MailSlot>& slot) {
    const auto nextStatus = [] { return DateTime() + TimeSpan(statusInterval); };
    Timer timer;
    timer.setEnd(nextStatus());
    for (int32_t count = 0; !listener.stop;) {
        const bool statusDue = timer.expired();
        if (statusDue) {
            logger.debug(5, "IPC: Server \"%s\": Checking for incomming messages. Done so %i times since last debug.",
                         name, count);
            count = 0;
        } else {
            ++count;
        }
        uint32_t request = 0;
        if (platform().messageQueues->peek(request) && request == WindowMessage::destroy) {
            logger.debug(4, "IPC: Received message to exit IPC listener.");
            listener.stop = true;
        }
        if (slot)
            receiveAndHandle(logger, told, name, *slot);
        if (statusDue) {
            renewIfGone(logger, told, name, slot);
            logger.debug(5, "IPC: Server \"%s\": Now sleeping for a while.", name);
            timer.setEnd(nextStatus());
        }
        Timer::sleep(turnPause);
    }
}
} // namespace

IPCServer::IPCServer(std::string_view name, const SmartPointer<LoggerCentre>& centre, IPCListener& told)
    : name_(name), argument_{&logger_, &name_, &told} {
    logger_.set(SmartPointer<LoggerUnit>(new LoggerUnit(centre, LogModule::ipc)));
    thread_ = SmartPointer<ThreadInstance>(new ThreadInstance(listen, &argument_));
    listener.stop = false; // a listener that was ended by force has left it set
    try {
        thread_->execute();
    } catch (JobException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        logger_.debug(1, failure.getFullDescription());
        throw;
    } catch (...) {
        logger_.debug(1, "Unknown error when creating listener.");
        throw IPCException(IC_CANNOT_RECEIVE, "", __FILE__, __LINE__);
    }
    logger_.debug(1, "IPC: Created server \"" + name_ + "\".");
}

IPCServer::~IPCServer() {
    try {
        thread_->stop();
    } catch (const JobException& failure) {
        logger_.debug(1, failure.getFullDescription());
    }
    thread_.release();
    logger_.debug(1, "IPC: Destroyed server \"" + name_ + "\".");
}

void IPCServer::stop() {
    listener.stop = true;
    for (int i = 0; i < stopAttempts && listener.stop; ++i)
        Timer::sleep(turnPause);
    if (listener.stop)
        logger_.debug(1, "IPC: Stopping server \"%s\" timed out.", name_);
    else
        logger_.debug(1, "IPC: Stopped server \"" + name_ + "\".");
}

uint32_t IPCServer::listen(void* given) {
    const auto* argument = static_cast<const Argument*>(given);
    const Logger& logger = *argument->logger;
    const std::string& name = *argument->name;
    logger.debug(2, "IPC: Initializing listener for \"" + name + "\".");
    logger.debug(2, "IPC: Creating MailSlot \"" + name + "\".");
    try {
        auto slot = std::make_unique<MailSlot>(MailSlotMode::receiver, name);
        logger.debug(2, "IPC: MailSlot created \"" + name + "\".");
        runTurns(logger, *argument->told, name, slot);
    } catch (IPCException& failure) {
        failure.addPosition(__FILE__, __LINE__);
        logger.debug(1, failure.getFullDescription());
        return failedExitCode;
    }
    logger.debug(1, "IPC: Exitited IPC listener.");
    listener.stop = false;
    return 0;
}

} // namespace Velmor
