#pragma once

#include "platform/Accounts.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Velmor {

/// Accounts are user ids, written "S-1-22-1-<uid>"; their domain is the computer's name. A name service that doesn't
/// answer in time costs its wait once; then the number stands for the name, and the answer is cached for a while.
class LinuxAccounts : public Accounts {
public:
    /// Asks the system's name service; empty if it knows no such user. May take as long as it likes.
    using Resolver = std::function<std::string(uint32_t uid)>;

    LinuxAccounts();
    /// `patience` in milliseconds.
    LinuxAccounts(Resolver resolver, uint32_t patience);

    bool lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) override;

private:
    struct Cached {
        std::string user;
        int64_t expires = 0; // monotonic seconds
    };

    std::string resolve(uint32_t uid, bool& found) const;

    Resolver resolver_;
    uint32_t patience_;
    std::mutex mutex_; // guards the cache
    std::map<uint32_t, Cached> cache_;
};

} // namespace Velmor
