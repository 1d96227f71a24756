#pragma once

#include <cstdint>
#include <string_view>

/// What the records of data files look like, for those who write and those who read them. A record is two lines. The
/// first is "1:", a second since 1970, ":" and the kind, and then the kind's fields, each led by the separator; the
/// second is a flag, ":" and figures separated by ":". docs/file-formats.md tells it in full.
namespace Velmor::RecordFormat {

constexpr std::string_view separator = ":0:";
constexpr std::string_view opening = "1:";
constexpr std::string_view first = "1:";     // flag of the first usage record of a process, and of all other kinds
constexpr std::string_view further = "0:";   // flag of its later ones
constexpr std::string_view running = "none"; // in place of the exit code of a process that runs on

/// The kinds.
constexpr int32_t usage = 31;
constexpr int32_t module = 53;
constexpr int32_t performance = 87;

/// The parts of a usage record's first line, in their order.
enum UsageField : uint8_t {
    head, // opening, start and kind
    domain,
    computer,
    architecture,
    system,
    executableName,
    application,
    executableDirectory,
    timeClass,
    account, // the only one that may hold a separator
    exitCode,
    usageFieldCount
};

} // namespace Velmor::RecordFormat
