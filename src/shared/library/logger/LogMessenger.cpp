#include "shared/library/logger/LogMessenger.h"

#include "platform/Platform.h"
#include "platform/ServiceManager.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/RecentMessages.h"

#include <atomic>

namespace Velmor {

namespace {
std::atomic<const LogCommons*> catalogueInUse{nullptr};
constexpr const char* defaultFile = "Velmor_Debug.log";
} // namespace

LogMessenger::LogMessenger() {
    agent_.setFile(defaultFile);
}

bool LogMessenger::post(const std::string& text) {
    LogMessage message;
    if (!LogCommons::decodeMessage(text, message))
        return false;
    bool found = false;
    const LogCommons* catalogue = catalogueInUse.load(std::memory_order_acquire);
    std::string wording;
    if (message.isLog && catalogue && catalogue->findMessage(message.module, message.messageId, wording)) {
        LogCommons::formatMessage(wording, message.text);
        message.text = std::move(wording);
        found = true;
    }
    const std::string line = LogCommons::formatLine(message, found);
    if (message.isLog) {
        recentMessages().add(message, line);
        platform().serviceManager->note(message.severity, line);
    }
    return agent_.write(line);
}

void LogMessenger::setCatalogue(const LogCommons* catalogue) {
    catalogueInUse.store(catalogue, std::memory_order_release);
}

} // namespace Velmor
