#pragma once

#include "platform/linux/processes/ExitRecords.h"
#include "platform/linux/processes/ProcessTable.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace Velmor {

/// Where the exit code of a process that has ended can be had. A code is never invented.
class ExitCodes {
public:
    /// The sources, in the order in which they are asked.
    struct Sources {
        bool descriptor = true;  // the pidfd's information call
        bool statLine = true;    // of a process that nobody has waited for yet
        bool exitRecords = true; // the kernel's, where descriptors don't tell; of processes that were held at their end
    };

    /// Exit records are noted in the records of `table`.
    ExitCodes(Sources sources, std::shared_ptr<ProcessTable> table) : sources_(sources), table_(std::move(table)) {}

    /// Begins to listen to the kernel's exit records, if they are needed and may be had. Once.
    void listen();

    /// Asks all sources about a process that has ended.
    bool ask(const ProcessRecord& record, uint32_t& code);
    /// Asks about one that nobody holds: only its `stat` line may be left. `startTicks` of 0 are any.
    bool askUnheld(uint32_t pid, uint64_t startTicks, uint32_t& code) const;

    /// Whether this kernel tells the exit code of an ended process through its descriptor.
    static bool descriptorsTell();

private:
    bool askExitRecords(const ProcessRecord& record, uint32_t& waitStatus);

    Sources sources_;
    std::shared_ptr<ProcessTable> table_;
    std::once_flag listening_;
    std::unique_ptr<ExitRecords> exitRecords_; // null if nothing needs or nobody may have them
};

} // namespace Velmor
