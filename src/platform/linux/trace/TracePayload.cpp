#include "platform/linux/trace/TracePayload.h"

#include "platform/linux/processes/TracedProcess.h"

#include <cstddef>
#include <cstring>

namespace Velmor {

namespace {
constexpr uint32_t userAuthority = 22; // "S-1-22-1-<uid>"

#pragma pack(push, 1)
struct Head {
    uint32_t pid;
    uint32_t parentPid;
    uint32_t sidPointer; // not 0: a SID follows; else nothing of it
    uint32_t sidAttributes;
    uint8_t revision;
    uint8_t subAuthorities;
    uint8_t authority[6]; // big-endian
    uint32_t kind;
    uint32_t owner;
};
#pragma pack(pop)
} // namespace

void TracePayload::write(std::vector<uint8_t>& bytes, uint32_t pid, uint32_t parentPid, uid_t owner,
                         std::string_view executable) {
    const bool isOwned = owner != TracedProcess::unknownOwner;
    const Head head{pid, parentPid, isOwned ? 1U : 0U, 0, 1, 2, {0, 0, 0, 0, 0, userAuthority}, 1, owner};
    const size_t headSize = isOwned ? sizeof(head) : offsetof(Head, sidAttributes);
    bytes.resize(headSize + executable.size() + 1);
    std::memcpy(bytes.data(), &head, headSize);
    executable.copy(reinterpret_cast<char*>(bytes.data()) + headSize, executable.size());
    bytes.back() = 0;
}

} // namespace Velmor
