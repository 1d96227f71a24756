#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

class Accounts {
public:
    virtual ~Accounts() = default;

    /// The account of a SID in text form. False if nobody knows it, with `error`. Bounded in time: a name service that
    /// doesn't answer costs its wait once for each SID and cache period.
    virtual bool lookup(std::string_view sid, std::string& user, std::string& domain, uint32_t& error) = 0;
};

} // namespace Velmor
