#pragma once

#include "shared/library/common/ipc/IPCMessage.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/win32/ThreadInstance.h"
#include "shared/library/logger/Logger.h"

#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// What an `IPCServer` tells, on the listener's thread. What it lets out ends the listener.
class IPCListener {
public:
    virtual ~IPCListener() = default;

    /// The messages of the family's format that waited, in the order of arrival.
    virtual void ipcCallback(const std::vector<IPCMessage>& messages) = 0;

    /// How many messages could not be kept, being too long or too many.
    virtual void messagesRefused(uint64_t count) = 0;

    /// The mailslot had been taken away, and has been made anew.
    virtual void slotRenewed() = 0;
};

/// Listens on a mailslot with a thread of its own, once a second, and hands what has come to a listener. A program has
/// one server at the most.
class IPCServer {
public:
    /// Starts the listener. Throws `JobException` or `IPCException` if it can't be started; a name that can't be had
    /// ends the listener, which its creator isn't told. `told` must outlive the server.
    IPCServer(std::string_view name, const SmartPointer<LoggerCentre>& centre, IPCListener& told);
    IPCServer(const IPCServer&) = delete;
    IPCServer& operator=(const IPCServer&) = delete;
    virtual ~IPCServer();

    /// Asks the listener to end, and waits for it up to 10 seconds.
    void stop();

private:
    /// What the listener's thread is given.
    struct Argument {
        Logger* logger;
        std::string* name;
        IPCListener* told;
    };

    static uint32_t listen(void* argument);

    SmartPointer<ThreadInstance> thread_;
    Logger logger_;
    std::string name_;
    Argument argument_;
};

} // namespace Velmor
