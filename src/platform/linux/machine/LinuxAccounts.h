#pragma once

#include "platform/Accounts.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Velmor {

/// Accounts are user ids, written "S-1-22-1-<uid>"; their domain is the computer's name. A name service that doesn't
/// answer in time costs its wait once, whichever users are asked for; from then on the number stands for the name until
/// the answer comes. Answers are cached for a while.
class LinuxAccounts : public Accounts {
public:
    /// Asks the system's name service; empty if it knows no such user. May take as long as it likes.
    using Resolver = std::function<std::string(uint32_t uid)>;

    LinuxAccounts();
    /// `patience` in milliseconds.
    LinuxAccounts(Resolver resolver, uint32_t patience);

    bool lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) override;

private:
    struct Names;

    std::string nameOf(uint32_t uid);

    Resolver resolver_;
    uint32_t patience_;
    std::shared_ptr<Names> names_; // a thread that asks may outlive this object
};

} // namespace Velmor
