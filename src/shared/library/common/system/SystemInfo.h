#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// Results of reading the family's shared values.
namespace ResourceResult {
constexpr int32_t success = 0;
constexpr int32_t outOfMemory = 1;
constexpr int32_t notFound = 2;
constexpr int32_t wrongType = 3;
} // namespace ResourceResult

/// Reads a text among the family's shared values, with each reference `${name}` to another of them replaced by its
/// text; a reference that can't be read stays. `out` is written only with result 0.
int32_t getResourceValue(std::string_view name, std::string& out);

/// Reads a number among the family's shared values.
int32_t getResourceNumber(std::string_view name, int32_t& out);

/// Writes a text among the family's shared values. 0, or 1 on failure.
int32_t setResourceValue(std::string_view name, std::string_view text);

/// The names by which records know this machine. What can't be read stays as it was, but for the domain, which is then
/// "N/A". Cheap enough to be asked for each record.
void getStaticInfo(std::string& domain, std::string& computerName, std::string& architecture, std::string& osName);

/// Major version times ten plus minor; 0 if it can't be read.
int32_t getOsVersion();

/// Whether this is a 32-bit program on a 64-bit system.
bool isWow64();

/// The symbolic name of a native system error, or "<unknown>".
std::string errorName(uint32_t code);

} // namespace Velmor
