#pragma once

#include "process/Process.h"
#include "rules/RuleFacts.h"

#include <string>
#include <string_view>

namespace Velmor {

/// The text conventions that all record kinds share. Each field is led by ":0:".
namespace RecordText {
/// "1:", the start in seconds, ":" and the number of the record kind, and the four fields of the machine.
std::string head(const Process& process, int32_t kind);
/// Adds a field as it stands.
void addField(std::string& line, std::string_view value);
/// Adds a field in which ":" would be taken for a separator.
void addPlainField(std::string& line, std::string value);
/// The last component of the executable, and what stands before it.
std::string executableName(const Process& process);
std::string executableDirectory(const Process& process);
} // namespace RecordText

/// Sets the facts of a process's user text, which may carry attributes behind the account name.
void setUserFacts(RuleFacts& facts, const std::string& user);

/// Sets the fact of the platform where rules can't know it otherwise.
void setPlatformFact(RuleFacts& facts);

/// Fixed notation with at most that many decimals and no trailing zeros.
std::string doubleToString(double value, int decimals);

} // namespace Velmor
