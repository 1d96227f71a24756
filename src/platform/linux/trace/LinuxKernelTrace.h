#pragma once

#include "platform/KernelTrace.h"
#include "platform/linux/processes/LinuxProcesses.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Velmor {

class TraceSession;

/// Process events of the kernel: names from side-band rings, starts, owners and exit codes from the process connector,
/// and what is missing from the process table and the kernel's exit records. One session at a time, which belongs to
/// this program and ends with it.
class LinuxKernelTrace : public KernelTrace {
public:
    /// What may be used. What the system refuses is done without.
    struct Sources {
        bool rings = true;
        bool connector = true;
        bool exitRecords = true;  // in place of the rings' names and the connector's codes
        bool processTable = true; // names of processes that still run, where the rings tell none
    };

    explicit LinuxKernelTrace(LinuxProcesses& processes) : LinuxKernelTrace(processes, Sources{}) {}
    LinuxKernelTrace(LinuxProcesses& processes, Sources sources);
    ~LinuxKernelTrace() override;

    uint32_t query(std::string_view name, TraceProperties& properties) override;
    uint32_t start(std::string_view name, const TraceProperties& properties) override;
    uint32_t stop(std::string_view name) override;
    TraceHandle open(std::string_view name, uint32_t& error) override;
    uint32_t process(const TraceHandle& trace, const EventCallback& onEvent, const BufferCallback& onBuffer) override;
    void close(TraceHandle& trace) override;
    uint32_t pointerSize() override;
    std::string shortcomings() override;
    bool canStart(std::string& shortcomings) override;

private:
    std::shared_ptr<TraceSession> find(std::string_view name);
    bool takeNext(TraceSession& session, std::vector<uint8_t>& payload, const EventCallback& onEvent);

    LinuxProcesses& processes_;
    Sources sources_;
    std::mutex mutex_; // guards the next
    std::string name_; // of the session
    std::shared_ptr<TraceSession> session_;
    std::string shortcomings_;
};

} // namespace Velmor
