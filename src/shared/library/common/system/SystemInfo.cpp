#include "shared/library/common/system/SystemInfo.h"

#include "platform/Errors.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Registry.h"
#include "shared/library/common/errors/ErrorNames.h"

#include <cstdlib>
#include <cstring>

namespace Velmor {

namespace {
constexpr std::string_view referenceBegin = "${";
constexpr int mostReads = 100; // of one look-up; more means that values refer to themselves, and have no end
constexpr uint32_t ntPlatform = 2;
constexpr int wrongPlatformExitCode = 1005;
constexpr uint16_t amd64 = 9;
constexpr uint16_t ia64 = 6;
constexpr uint32_t storageServer = 0x2000;

int32_t readValue(std::string_view name, std::string& out, int& readsLeft);

int32_t readRaw(std::string_view name, uint32_t& type, std::string& data) {
    uint32_t error = NativeError::success;
    if (platform().registry->read(name, type, data, error))
        return ResourceResult::success;
    return error == NativeError::notEnoughMemory ? ResourceResult::outOfMemory : ResourceResult::notFound;
}

void expandReferences(std::string& text, int& readsLeft) {
    size_t position = text.find(referenceBegin);
    while (position != std::string::npos && position + 3 < text.size()) {
        size_t end = text.find('}', position);
        if (end == std::string::npos)
            return;
        std::string value;
        const std::string name = text.substr(position + 2, end - position - 2);
        if (readValue(name, value, readsLeft) == ResourceResult::success) {
            text.replace(position, end + 1 - position, value);
            end = position + value.size();
        }
        position = text.find(referenceBegin, end);
    }
}

int32_t readValue(std::string_view name, std::string& out, int& readsLeft) {
    if (readsLeft-- <= 0)
        return ResourceResult::notFound;
    uint32_t type = 0;
    std::string data;
    if (const int32_t result = readRaw(name, type, data); result != ResourceResult::success)
        return result;
    if (type != RegistryType::text && type != RegistryType::expandableText && type != RegistryType::multiText)
        return ResourceResult::wrongType;
    while (!data.empty() && data.back() == '\0')
        data.pop_back();
    expandReferences(data, readsLeft);
    out = std::move(data);
    return ResourceResult::success;
}

std::string_view architectureWord(uint16_t number) {
    switch (number) {
    case 0:
        return "i386";
    case 1:
        return "mips";
    case 2:
        return "alpha";
    case 3:
        return "powerpc";
    case ia64:
        return "ia64";
    case amd64:
        return "amd64";
    case 10:
        return "ia32_on_win64";
    case 65535:
        return "unknown";
    default:
        return "error";
    }
}

std::string nameOfVersion5(const SystemVersion& version, uint16_t architecture) {
    if (version.minor == 0)
        return "2000";
    if (version.minor == 1)
        return "XP";
    if (version.isServerR2)
        return "Server 2003 R2";
    if (version.suiteMask == storageServer)
        return "Storage Server 2003";
    return version.isWorkstation && architecture == amd64 ? "XP x64" : "Server 2003";
}

/// What a system of the NT line is called by its numbers.
std::string systemName(const SystemVersion& version, uint16_t architecture) {
    std::string name = "Windows ";
    const bool isServer2003Line = version.major == 5 && version.minor == 2;
    if (version.major == 3 || version.major == 4)
        return name + "NT " + std::to_string(version.major) + "." + std::to_string(version.minor);
    if (version.major == 5 && version.minor <= 2)
        name += nameOfVersion5(version, architecture);
    else if (version.major == 6)
        name += version.isWorkstation ? "Vista" : "Server 2008";
    else
        return name + std::to_string(version.major) + " " + std::to_string(version.minor);
    if (version.major == 6 || (isServer2003Line && !version.isWorkstation)) {
        if (architecture == amd64)
            name += " x64";
        else if (architecture == ia64)
            name += " ia64";
    }
    return name;
}
} // namespace

int32_t getResourceValue(std::string_view name, std::string& out) {
    int readsLeft = mostReads;
    return readValue(name, out, readsLeft);
}

int32_t getResourceNumber(std::string_view name, int32_t& out) {
    uint32_t type = 0;
    std::string data;
    if (const int32_t result = readRaw(name, type, data); result != ResourceResult::success)
        return result;
    if (type != RegistryType::number || data.size() != sizeof(out))
        return ResourceResult::wrongType;
    std::memcpy(&out, data.data(), sizeof(out));
    return ResourceResult::success;
}

int32_t setResourceValue(std::string_view name, std::string_view text) {
    uint32_t error = NativeError::success;
    return platform().registry->writeText(name, text, error) ? 0 : 1;
}

void getStaticInfo(std::string& domain, std::string& computerName, std::string& architecture, std::string& osName) {
    Machine& machine = *platform().machine;
    const uint16_t architectureNumber = machine.architecture();
    architecture = architectureWord(architectureNumber);
    SystemVersion version;
    if (machine.systemVersion(version)) {
        if (version.platformId != ntPlatform)
            std::_Exit(wrongPlatformExitCode);
        osName = version.name.empty() ? systemName(version, architectureNumber) : version.name;
    }
    machine.computerName(computerName);
    if (!machine.domain(domain))
        domain = "N/A";
}

int32_t getOsVersion() {
    SystemVersion version;
    if (!platform().machine->systemVersion(version))
        return 0;
    return static_cast<int32_t>(version.major * 10 + version.minor);
}

bool isWow64() {
    return platform().machine->isWow64();
}

std::string errorName(uint32_t code) {
    const std::string_view name = errorNameOf(code);
    return std::string(name.empty() ? std::string_view("<unknown>") : name);
}

} // namespace Velmor
