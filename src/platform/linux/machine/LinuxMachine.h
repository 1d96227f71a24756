#pragma once

#include "platform/Machine.h"

#include <string>

namespace Velmor {

/// Facts of the machine, read once: none of them changes while a program runs, but for the host's name.
class LinuxMachine : public Machine {
public:
    LinuxMachine();
    bool computerName(std::string& name) override;
    bool domain(std::string& name) override;
    uint16_t architecture() override { return architecture_; }
    bool systemVersion(SystemVersion& version) override;
    std::string platformWord() override { return "linux"; }
    bool isWow64() override { return false; }
    uint64_t physicalMemory() override;
    bool enableDebugPrivilege(std::string& failedCall, uint32_t& error) override;
    std::string missingRights() override;
    uint32_t processId() override;
    OwnUse ownUse() override;
    void limitRights() override;
    void raiseHandleLimit() override;

private:
    uint16_t architecture_;
    SystemVersion version_;
};

} // namespace Velmor
