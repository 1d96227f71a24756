#include "platform/linux/base/Capabilities.h"

#include "platform/linux/base/FileIdentity.h"

#include <array>
#include <cstdint>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

bool hasCapability(Capability capability) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> data{};
    if (syscall(SYS_capget, &header, data.data()) != 0)
        return false;
    const auto number = static_cast<uint32_t>(capability);
    return (data[number / 32].effective >> (number % 32)) & 1U;
}

bool isInMachinesPidNamespace() {
    constexpr uint64_t inodeOfFirst = 0xEFFFFFFC; // the kernel gives it to none but the first
    const auto own = FileIdentity::of("/proc/self/ns/pid");
    return !own || own->inode == inodeOfFirst;
}

} // namespace Velmor
