#include "platform/linux/threads/LinuxCriticalSections.h"

#include "platform/linux/threads/Checkpoint.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr long waitSlice = 50000000; // nanoseconds between looks at the section, however many wake-ups get lost

uint32_t ownThreadId() {
    static thread_local const auto id = static_cast<uint32_t>(syscall(SYS_gettid));
    return id;
}

/// Owner and depth stand in one word that is only ever exchanged as a whole: a holder that is ended anywhere leaves
/// nothing half done, and the section can be begun anew at any moment.
class LinuxCriticalSection : public CriticalSection {
public:
    void enter() override {
        while (!tryEnter()) {
            checkpoint();
            const uint32_t seen = releases_.load(std::memory_order_acquire);
            waiters_.fetch_add(1, std::memory_order_acq_rel);
            if (ownerOf(state_.load(std::memory_order_acquire)) != 0)
                waitForRelease(seen);
            waiters_.fetch_sub(1, std::memory_order_acq_rel);
        }
    }

    bool tryEnter() override {
        const uint32_t self = ownThreadId();
        uint64_t state = state_.load(std::memory_order_relaxed);
        while (true) {
            if (ownerOf(state) != 0 && ownerOf(state) != self)
                return false;
            if (state_.compare_exchange_weak(state, packed(self, depthOf(state) + 1), std::memory_order_acq_rel)) {
                enteredSections = enteredSections + 1;
                return true;
            }
        }
    }

    void leave() override {
        const uint32_t self = ownThreadId();
        uint64_t state = state_.load(std::memory_order_relaxed);
        do {
            if (ownerOf(state) != self)
                return;
        } while (!state_.compare_exchange_weak(state, depthOf(state) > 1 ? packed(self, depthOf(state) - 1) : free,
                                               std::memory_order_acq_rel));
        enteredSections = enteredSections - 1;
        if (depthOf(state) <= 1)
            announceRelease();
    }

    void renew() override {
        state_.store(free, std::memory_order_release);
        announceRelease();
    }

private:
    static constexpr uint64_t free = 0;

    static uint32_t ownerOf(uint64_t state) { return static_cast<uint32_t>(state >> 32); }
    static uint32_t depthOf(uint64_t state) { return static_cast<uint32_t>(state); }
    static uint64_t packed(uint32_t owner, uint32_t depth) { return (uint64_t{owner} << 32) | depth; }

    void waitForRelease(uint32_t seen) {
        const timespec slice{0, waitSlice};
        syscall(SYS_futex, &releases_, FUTEX_WAIT_PRIVATE, seen, &slice, nullptr, 0);
    }

    void announceRelease() {
        releases_.fetch_add(1, std::memory_order_acq_rel);
        if (waiters_.load(std::memory_order_acquire) > 0)
            syscall(SYS_futex, &releases_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

    std::atomic<uint64_t> state_{free};
    std::atomic<uint32_t> releases_{0}; // what waiters wait on
    std::atomic<uint32_t> waiters_{0};
};
} // namespace

std::unique_ptr<CriticalSection> LinuxCriticalSections::create() {
    return std::make_unique<LinuxCriticalSection>();
}

} // namespace Velmor
