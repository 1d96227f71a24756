#include "platform/linux/machine/LinuxMachine.h"

#include "platform/Errors.h"
#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/DirectoryReader.h"
#include "platform/linux/processes/LinuxProcesses.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr std::string_view noDomain = "(none)"; // what the kernel says without one

utsname systemNames() {
    utsname names{};
    uname(&names);
    return names;
}

uint16_t architectureNumber(std::string_view machine) {
    if (machine == "x86_64")
        return 9;
    if (machine.size() == 4 && machine.front() == 'i' && machine.ends_with("86"))
        return 0;
    if (machine.starts_with("ppc"))
        return 3;
    if (machine.starts_with("mips"))
        return 1;
    if (machine == "alpha")
        return 2;
    return machine == "ia64" ? 6 : 65535;
}

/// The distribution's name for itself; empty if it has none.
std::string prettyName() {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            constexpr std::string_view key = "PRETTY_NAME=";
            if (!line.starts_with(key))
                continue;
            std::string name = line.substr(key.size());
            std::erase_if(name, [](unsigned char c) { return c == '"' || c == '\'' || c == ':' || c < ' '; });
            return name;
        }
    }
    return {};
}
} // namespace

LinuxMachine::LinuxMachine() {
    const utsname names = systemNames();
    architecture_ = architectureNumber(names.machine);
    std::sscanf(names.release, "%u.%u", &version_.major, &version_.minor); // NOLINT(cert-err34-c): 0 stands for unknown
    const std::string pretty = prettyName();
    version_.name = "Linux " + (pretty.empty() ? std::string(names.release) : pretty);
}

bool LinuxMachine::computerName(std::string& name) {
    const utsname names = systemNames();
    const std::string_view host = names.nodename;
    name = host.substr(0, host.find('.'));
    return true;
}

bool LinuxMachine::domain(std::string& name) {
    const utsname names = systemNames();
    const std::string_view kernelDomain = static_cast<const char*>(names.domainname);
    if (!kernelDomain.empty() && kernelDomain != noDomain) {
        name = kernelDomain;
        return true;
    }
    const std::string_view host = names.nodename;
    const size_t point = host.find('.');
    if (point == std::string_view::npos || point + 1 == host.size())
        return false;
    name = host.substr(point + 1);
    return true;
}

bool LinuxMachine::systemVersion(SystemVersion& version) {
    version = version_;
    return true;
}

uint64_t LinuxMachine::physicalMemory() {
    struct sysinfo info {};
    return sysinfo(&info) == 0 ? uint64_t{info.totalram} * info.mem_unit : 0;
}

/// The right comes with the capability, and there is nothing to turn on; `missingRights` speaks of its absence.
bool LinuxMachine::enableDebugPrivilege(std::string&, uint32_t& error) {
    error = NativeError::success;
    return true;
}

std::string LinuxMachine::missingRights() {
    std::string text;
    if (!hasCapability(Capability::sysPtrace))
        text += "The capability CAP_SYS_PTRACE is missing: programs of other users show as \"(ACCESS DENIED)\". ";
    if (!ExitCodes::descriptorsTell() && !ExitRecords::start([](uint32_t, const ExitRecord&) {}))
        text += "The kernel's exit records can't be had, which need the capability CAP_NET_ADMIN in the machine's own "
                "name spaces: exit codes of some processes can't be learnt. ";
    if (!text.empty())
        text.pop_back();
    return text;
}

uint32_t LinuxMachine::processId() {
    return static_cast<uint32_t>(getpid());
}

OwnUse LinuxMachine::ownUse() {
    OwnUse use;
    rusage times{};
    getrusage(RUSAGE_SELF, &times);
    for (const timeval& time : {times.ru_utime, times.ru_stime})
        use.processorSeconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages; // the first is what is mapped
    use.memory = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    DirectoryReader("/proc/self/fd").forEach([&](const char* name, uint64_t) {
        use.handles += *name != '.' ? 1 : 0;
        return true;
    });
    use.handles -= std::min(use.handles, 1U); // the one that looks
    return use;
}

void LinuxMachine::limitRights() {
    limitCapabilities();
}

void LinuxMachine::raiseHandleLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace Velmor
