#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// A process as the system's own accounting wrote it down at its end.
struct AccountedProcess {
    std::string command;
    uint32_t user = 0;
    uint32_t exitCode = 0; // or 128 plus the signal
    double start = 0;      // seconds since 1970
    double end = 0;
};

/// The system's process accounting, on while the object lives. There is one for the whole machine: whoever else wants
/// it waits.
class ProcessAccounting {
public:
    explicit ProcessAccounting(const std::string& file);
    ProcessAccounting(const ProcessAccounting&) = delete;
    ProcessAccounting& operator=(const ProcessAccounting&) = delete;
    ~ProcessAccounting();

    bool isOn() const { return isOn_; }
    /// All processes that have ended whose command begins so.
    std::vector<AccountedProcess> ended(const std::string& prefix) const;

private:
    std::string file_;
    int turn_; // held by a lock on a directory that every machine has
    bool isOn_ = false;
};

} // namespace Velmor
