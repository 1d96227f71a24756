#pragma once

#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/win32/ThreadInstance.h"
#include "shared/library/logger/Logger.h"

#include <functional>
#include <string>
#include <string_view>

namespace Velmor {

/// What is told of each message, on the listener's thread. What it lets out ends the listener.
using IPCCallback = std::function<void(const std::string& type, const std::string& reference, const std::string& text,
                                       const std::string& replyTo)>;

/// Listens on a mailslot with a thread of its own, once a second, and hands each message of the family's format to a
/// callback, in the order of arrival. A program has one server at the most.
class IPCServer {
public:
    /// Starts the listener. Throws `JobException` or `IPCException` if it can't be started; a name that can't be had
    /// ends the listener, which its creator isn't told.
    IPCServer(std::string_view name, const SmartPointer<LoggerCentre>& centre, IPCCallback callback);
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
        const IPCCallback* callback;
    };

    static uint32_t listen(void* argument);

    SmartPointer<ThreadInstance> thread_;
    Logger logger_;
    std::string name_;
    IPCCallback callback_;
    Argument argument_;
};

} // namespace Velmor
