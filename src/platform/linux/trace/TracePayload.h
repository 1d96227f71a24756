#pragma once

#include "platform/KernelTrace.h"

#include <cstdint>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace Velmor {

/// The payload of a start or an end: process id, parent's id, the owner's SID behind its two words, or one word of 0 if
/// the owner isn't known, and the path of the executable with a terminating zero. Numbers are little-endian, pointers
/// four bytes wide.
namespace TracePayload {

constexpr uint16_t version = 2;
constexpr uint32_t pointerSize = 4;
constexpr TraceGuid guid{0xd0, 0xa8, 0x6f, 0x3d, 0x05, 0xfe, 0xd0, 0x11,
                         0x9d, 0xda, 0x00, 0xc0, 0x4f, 0xd7, 0xba, 0x7c};
constexpr std::string_view guidText = "{3D6FA8D0-FE05-11D0-9DDA-00C04FD7BA7C}";

/// Puts a payload into `bytes`, whose room is used again.
void write(std::vector<uint8_t>& bytes, uint32_t pid, uint32_t parentPid, uid_t owner, std::string_view executable);

} // namespace TracePayload

} // namespace Velmor
