#include "shared/library/logger/LoggerCentre.h"

#include "platform/Platform.h"
#include "platform/Threads.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/LogMessenger.h"
#include "shared/library/logger/LoggerUnit.h"

namespace Velmor {

LoggerCentre::~LoggerCentre() = default;

bool LoggerCentre::send(LogMessage& message) {
    message.program = program_;
    if (!message.isLog && LoggerUnit::getShowThreadId())
        message.text.insert(0, std::to_string(platform().threads->currentId()) + ": ");
    std::string text;
    LogCommons::encodeMessage(message, text);
    return !messenger_.isNull() && messenger_->post(text);
}

} // namespace Velmor
