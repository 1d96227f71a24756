#pragma once

#include <string>
#include <string_view>

namespace Velmor {

constexpr std::string_view collectorMailslot = "Velmor_Runtally";

/// Carries out a command of another program of the family, on the listener's thread; a request that asks for one gets
/// a reply.
void ipcCallback(const std::string& type, const std::string& reference, const std::string& text,
                 const std::string& replyTo);

} // namespace Velmor
