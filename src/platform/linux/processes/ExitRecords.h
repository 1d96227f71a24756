#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/WakeEvent.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace Velmor {

/// What the kernel writes down at the end of a process.
struct ExitRecord {
    uint32_t waitStatus = 0; // as a parent gets it
    int64_t startTime = 0;   // of the thread that wrote it, wall-clock seconds
    bool isLastOfMany = false;
    std::string commandName;
    uint32_t owner = 0;
    uint64_t device = 0; // of the executable, as `makedev` gives it; 0 on kernels that don't tell
    uint64_t inode = 0;
};

/// The kernel's exit records, taken off its socket by a thread as they come, or only when they are fetched. Needs
/// CAP_NET_ADMIN in the machine's own name spaces. Of a process with several threads the record that comes last counts.
class ExitRecords {
public:
    /// Is told of each end, from the thread or from `fetch`, one at a time.
    using Receiver = std::function<void(uint32_t pid, const ExitRecord& exit)>;

    enum class Reading : uint8_t { asTheyCome, whenFetched };

    /// Null if the kernel has no such records or refuses them.
    static std::unique_ptr<ExitRecords> start(Receiver receiver, Reading reading = Reading::asTheyCome);

    ExitRecords(FileDescriptor socket, uint16_t family, Receiver receiver, Reading reading);
    ExitRecords(const ExitRecords&) = delete;
    ExitRecords& operator=(const ExitRecords&) = delete;
    ~ExitRecords();

    /// Passes on all that the kernel has written until now.
    void fetch();

private:
    void run();
    void take(std::string_view message);

    FileDescriptor socket_;
    WakeEvent stop_;
    uint16_t family_;
    Receiver receiver_;
    std::mutex mutex_; // one reader of the socket at a time
    std::thread reader_;
};

} // namespace Velmor
