#pragma once

#include "platform/linux/base/FileDescriptor.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Velmor {

/// What the kernel tells of one process, as far as it matters here. Times are nanoseconds of the monotonic clock.
struct ProcessNotice {
    enum class Kind : uint8_t { forked, threadStarted, executed, ownerChanged, exited };

    Kind kind = Kind::forked;
    uint32_t pid = 0;    // of the process
    uint32_t other = 0;  // forked: the parent; exited: the thread; ownerChanged: the effective user
    uint32_t status = 0; // exited: as a parent would get it
    int64_t time = 0;
};

/// The kernel gives 0 or -1 for what is nobody's business here: its idle tasks, and processes of another name space.
constexpr bool isProcessId(uint32_t pid) {
    return pid != 0 && pid != UINT32_MAX;
}

/// The kernel's process connector. Its messages come in the order in which things happened to each process. Needs
/// CAP_NET_ADMIN in the machine's own name spaces: without it the buffer can't be had that holds a flood of them.
class ProcessConnector {
public:
    static constexpr int bufferSize = 16 * 1024 * 1024;

    /// Begins to listen. Null with errno if the kernel refuses.
    static std::unique_ptr<ProcessConnector> start();

    explicit ProcessConnector(FileDescriptor socket);

    /// Becomes readable when something has come.
    int descriptor() const { return socket_.get(); }

    /// Appends what has come until now, but at most about `limit`.
    void fetch(std::vector<ProcessNotice>& notices, size_t limit);

    /// How many messages the kernel could not keep; exact once a next one has come from each processor.
    uint64_t lost() const { return lost_; }
    /// How often the kernel said that it could not keep something.
    uint64_t overruns() const { return overruns_; }

private:
    class Buffers;

    bool awaitConsent(uint32_t request);
    void take(const char* message, size_t size, std::vector<ProcessNotice>& notices);
    void countGap(uint32_t processor, uint32_t number);

    FileDescriptor socket_;
    std::shared_ptr<Buffers> buffers_;
    std::vector<int64_t> next_; // expected number by processor; -1 before the first
    uint64_t lost_ = 0;
    uint64_t overruns_ = 0;
};

} // namespace Velmor
