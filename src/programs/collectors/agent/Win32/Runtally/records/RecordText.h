#pragma once

#include "process/Process.h"
#include "rules/RuleFacts.h"

#include <string>
#include <string_view>

namespace Velmor {

/// The text conventions that all record kinds share. Each field is led by ":0:".
namespace RecordText {
/// "1:", the beginning in seconds, ":" and the number of the record kind.
std::string opening(int32_t start, int32_t kind);
/// The opening and the four fields of the machine.
std::string head(int32_t start, int32_t kind);
/// Adds a field as it stands.
void addField(std::string& line, std::string_view value);
/// Adds a field in which ":" would be taken for a separator.
void addPlainField(std::string& line, std::string value);
/// The last component of the executable, and what stands before it.
std::string executableName(const Process& process);
std::string executableDirectory(const Process& process);
/// A plain decimal, or "none" for the code of a process that runs.
std::string exitCode(uint32_t code);
} // namespace RecordText

/// Sets the facts of a process's user text, which may carry attributes behind the account name.
void setUserFacts(RuleFacts& facts, const std::string& user);

/// Whether the rules want a record; the trace, led by `who`, names the line that decided.
bool isIncluded(std::string_view who, std::string_view what, const RuleFacts& facts);

/// Writes a record to the data file of its type; without one it is lost, which is reported.
bool writeToDataFile(const char* dataType, const std::string& record);

/// Fixed notation with at most that many decimals and no trailing zeros.
std::string doubleToString(double value, int decimals);

} // namespace Velmor
