#include "platform/linux/base/Capabilities.h"

#include "platform/linux/base/FileIdentity.h"

#include <array>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr uint64_t bit(Capability capability) {
    return uint64_t{1} << static_cast<unsigned>(capability);
}

constexpr uint64_t toLook = bit(Capability::sysPtrace) | bit(Capability::dacReadSearch);
constexpr uint64_t toListen = bit(Capability::netAdmin) | bit(Capability::perfmon);
constexpr uint64_t ofRootsFiles = bit(Capability::dacOverride) | bit(Capability::fileOwner) |
                                  bit(Capability::setGroup) | bit(Capability::setUser) | bit(Capability::lockMemory) |
                                  bit(Capability::sysNice) | bit(Capability::sysResource);

// The calls of the system itself, which are about the calling thread alone.

bool read(CapabilitySets& sets) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> data{};
    if (syscall(SYS_capget, &header, data.data()) != 0)
        return false;
    const auto join = [](uint32_t low, uint32_t high) { return uint64_t{high} << 32U | low; };
    sets = {join(data[0].effective, data[1].effective), join(data[0].permitted, data[1].permitted),
            join(data[0].inheritable, data[1].inheritable)};
    return true;
}

bool write(const CapabilitySets& sets) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> data{};
    for (unsigned half = 0; half < 2; ++half)
        data.at(half) = {static_cast<uint32_t>(sets.effective >> (32 * half)),
                         static_cast<uint32_t>(sets.permitted >> (32 * half)),
                         static_cast<uint32_t>(sets.inheritable >> (32 * half))};
    return syscall(SYS_capset, &header, data.data()) == 0;
}
} // namespace

bool hasCapability(Capability capability) {
    CapabilitySets sets;
    return read(sets) && (sets.permitted & bit(capability)) != 0;
}

void limitCapabilities() {
    CapabilitySets sets;
    if (!read(sets))
        return;
    uint64_t inForce = toLook | (geteuid() == 0 ? ofRootsFiles : 0);
    if ((sets.permitted & bit(Capability::perfmon)) == 0) // an older kernel, which asks for more instead
        inForce |= bit(Capability::sysAdmin);
    sets.permitted &= inForce | toListen;
    sets.effective &= inForce;
    sets.inheritable = 0;
    (void)!write(sets);
}

void giveCapabilitiesUp() {
    (void)!write({});
}

CapabilitiesInForce::CapabilitiesInForce(uint64_t kept, uint64_t raised) {
    if (!read(before_))
        return;
    CapabilitySets sets = before_;
    sets.effective = (sets.effective & kept) | (sets.permitted & raised);
    isChanged_ = sets.effective != before_.effective && write(sets);
}

CapabilitiesInForce::~CapabilitiesInForce() {
    if (isChanged_)
        (void)!write(before_);
}

RaisedCapability::RaisedCapability(Capability capability) : CapabilitiesInForce(~uint64_t{0}, bit(capability)) {}

LoweredCapabilities::LoweredCapabilities() : CapabilitiesInForce(0, 0) {}

bool isInMachinesPidNamespace() {
    constexpr uint64_t inodeOfFirst = 0xEFFFFFFC; // the kernel gives it to none but the first
    const auto own = FileIdentity::of("/proc/self/ns/pid");
    return !own || own->inode == inodeOfFirst;
}

} // namespace Velmor
