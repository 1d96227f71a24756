// Linked into the collector's program alone. A signal that arrives while the program is being loaded would end it: so
// those that are requests to the collector are held from the first instruction of ours, before any library's, until it
// receives them.

#include <csignal>
#include <cstdint>
#include <sys/syscall.h>
#include <unistd.h>

namespace {
constexpr uint64_t bit(int signal) {
    return uint64_t{1} << static_cast<unsigned>(signal - 1);
}
const uint64_t requests = bit(SIGTERM) | bit(SIGINT) | bit(SIGHUP);

// The call of the system itself: the library's own may not work yet. Neither do sanitizers.
__attribute__((no_sanitize("address", "thread", "undefined"))) void holdRequests(int, char**, char**) {
    syscall(SYS_rt_sigprocmask, SIG_BLOCK, &requests, nullptr, sizeof(requests));
}

__attribute__((section(".preinit_array"), used)) void (*const first)(int, char**, char**) = holdRequests;
} // namespace
