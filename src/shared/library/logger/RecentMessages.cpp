#include "shared/library/logger/RecentMessages.h"

namespace Velmor {

namespace {
constexpr size_t mostBytes = 600; // of a line: all of them fit into one reply
}

void RecentMessages::add(const LogMessage& message, const std::string& line) {
    Entry entry{message.time.getSeconds(), message.severity, message.module, message.messageId,
                line.substr(0, mostBytes)};
    const TimedMonopolyHold hold(lock_);
    entries_.push_back(std::move(entry));
    if (entries_.size() > most)
        entries_.pop_front();
}

std::vector<RecentMessages::Entry> RecentMessages::entries() {
    const TimedMonopolyHold hold(lock_);
    return {entries_.begin(), entries_.end()};
}

RecentMessages& recentMessages() {
    static RecentMessages messages;
    return messages;
}

} // namespace Velmor
