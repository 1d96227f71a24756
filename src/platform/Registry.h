#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Types of a stored value, by their native numbers.
namespace RegistryType {
constexpr uint32_t text = 1;           // REG_SZ
constexpr uint32_t expandableText = 2; // REG_EXPAND_SZ
constexpr uint32_t number = 4;         // REG_DWORD
constexpr uint32_t multiText = 7;      // REG_MULTI_SZ
} // namespace RegistryType

/// A value where the administrator wrote it. Without a name: what is wrong in that line.
struct RegistryEntry {
    std::string name;
    uint32_t type = 0; // of RegistryType
    int32_t line = 1;
    std::string problem;
};

/// The family's shared values: typed values under short names.
class Registry {
public:
    virtual ~Registry() = default;

    /// True if the store itself can be read. False if it is missing or damaged; `cause` then says so in one line,
    /// with file and line where there are any.
    virtual bool isReadable(std::string& cause) = 0;

    /// All that the administrator wrote in `file`, and what is wrong in it. Without a file that can be read there is
    /// one entry, which says why.
    virtual std::vector<RegistryEntry> survey(std::string& file) = 0;

    /// Reads a value whole: a text's bytes, the parts of a multi-text each with a zero byte behind it, or the four
    /// bytes of a number in the machine's order. `error` is 2 if there is no such value.
    virtual bool read(std::string_view name, uint32_t& type, std::string& data, uint32_t& error) = 0;

    /// Writes a text value, so that other programs see the old or the new one and never a part.
    virtual bool writeText(std::string_view name, std::string_view text, uint32_t& error) = 0;
};

} // namespace Velmor
