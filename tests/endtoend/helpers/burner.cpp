// Burns half of a processor, holds memory and writes, all of it steadily, until it is ended: burner MEBIBYTES RATE,
// where RATE is in bytes written in a second.

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {
double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}
} // namespace

int main(int count, char** arguments) {
    if (count < 3)
        return 1;
    const std::string memory(std::strtoul(arguments[1], nullptr, 10) << 20U, 'x');
    const double rate = std::atof(arguments[2]);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const double begin = seconds(CLOCK_MONOTONIC);
    const double used = seconds(CLOCK_PROCESS_CPUTIME_ID);
    double written = 0;
    while (true) {
        const double elapsed = seconds(CLOCK_MONOTONIC) - begin;
        const double due = rate * elapsed - written;
        const ssize_t size = due < 1 ? 0 : write(nowhere, memory.data(), static_cast<size_t>(due));
        written += size > 0 ? static_cast<double>(size) : 0;
        while (seconds(CLOCK_PROCESS_CPUTIME_ID) - used < elapsed / 2) {
        }
        usleep(1000);
    }
}
