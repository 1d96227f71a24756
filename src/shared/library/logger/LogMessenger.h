#pragma once

#include "shared/library/logger/LoggerAgentFile.h"

#include <string>
#include <string_view>

namespace Velmor {

class LogCommons;

/// The end of the logging road inside the program: turns an encoded message into a line of the debug file.
class LogMessenger {
public:
    /// Points at "Velmor_Debug.log" until the real file is known.
    LogMessenger();
    LogMessenger(const LogMessenger&) = delete;
    LogMessenger& operator=(const LogMessenger&) = delete;
    virtual ~LogMessenger() = default;

    /// Writes an encoded message. False if it doesn't decode or couldn't be written; a `FileException` of the file
    /// passes through. Any thread may call.
    virtual bool post(const std::string& text);
    /// Sends on what had to wait. Returns how many messages had to make room for newer ones since the last call.
    virtual uint64_t sendWaiting() { return 0; }

    bool setFile(const std::string& path) { return agent_.setFile(path); }

    /// Where all messengers look the wording of numbered messages up; null for none. It must outlive them.
    static void setCatalogue(const LogCommons* catalogue);

private:
    LoggerAgentFile agent_;
};

} // namespace Velmor
