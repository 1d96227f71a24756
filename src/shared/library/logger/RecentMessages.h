#pragma once

#include "shared/library/common/system/Monopoly.h"
#include "shared/library/logger/LogMessage.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace Velmor {

/// The last numbered messages of the program, for whoever asks how it is. Any thread may use it.
class RecentMessages {
public:
    struct Entry {
        int32_t time = 0; // seconds since 1970
        int32_t severity = 0;
        int32_t module = 0;
        int32_t number = 0;
        std::string line; // as the debug file has it
    };
    static constexpr size_t most = 10;

    void add(const LogMessage& message, const std::string& line);
    /// The oldest first.
    std::vector<Entry> entries();

private:
    Monopoly lock_; // guards the entries
    std::deque<Entry> entries_;
};

RecentMessages& recentMessages();

} // namespace Velmor
