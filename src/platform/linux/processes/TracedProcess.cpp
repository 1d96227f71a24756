#include "platform/linux/processes/TracedProcess.h"

#include "platform/linux/threads/Checkpoint.h"

namespace Velmor {

TracedPointer TracedProcesses::find(uint32_t pid) {
    const ServiceLock lock(mutex_);
    const auto found = processes_.find(pid);
    return found == processes_.end() ? nullptr : found->second;
}

void TracedProcesses::enter(const TracedPointer& process) {
    const ServiceLock lock(mutex_);
    processes_[process->pid] = process;
}

void TracedProcesses::remove(const TracedPointer& process) {
    const ServiceLock lock(mutex_);
    const auto found = processes_.find(process->pid);
    if (found != processes_.end() && found->second == process)
        processes_.erase(found);
}

void TracedProcesses::forEach(const std::function<void(const TracedPointer&)>& visit) {
    const ServiceLock lock(mutex_);
    for (const auto& [pid, process] : processes_)
        visit(process);
}

} // namespace Velmor
