#include "platform/linux/family/LinuxServiceManager.h"

#include "platform/linux/base/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Velmor {

namespace {
/// A manager that can't be reached is none of the program's business.
void notify(std::string_view state) {
    const char* variable = std::getenv("NOTIFY_SOCKET");
    const std::string_view path = variable ? variable : "";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() < 2 || path.size() >= sizeof(address.sun_path) || (path[0] != '/' && path[0] != '@'))
        return;
    path.copy(&address.sun_path[0], path.size());
    if (path[0] == '@') // a name in the abstract space
        address.sun_path[0] = '\0';
    const FileDescriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    (void)!sendto(sender.get(), state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                  reinterpret_cast<const sockaddr*>(&address), length);
}

bool journalReads() {
    const char* variable = std::getenv("JOURNAL_STREAM");
    struct stat state {};
    return variable && fstat(STDERR_FILENO, &state) == 0 &&
           variable == std::to_string(state.st_dev) + ":" + std::to_string(state.st_ino);
}
} // namespace

void LinuxServiceManager::ready(std::string_view status) {
    notify("READY=1\nSTATUS=" + std::string(status));
}

void LinuxServiceManager::reloading() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t microseconds = int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
    notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void LinuxServiceManager::alive(std::string_view status) {
    notify((std::getenv("WATCHDOG_USEC") ? "WATCHDOG=1\nSTATUS=" : "STATUS=") + std::string(status));
}

void LinuxServiceManager::stopping() {
    notify("STOPPING=1");
}

void LinuxServiceManager::note(int32_t severity, std::string_view line) {
    static const bool isRead = journalReads();
    if (!isRead)
        return;
    constexpr std::array<std::string_view, 5> priorities{"<5>", "<4>", "<3>", "<2>", "<1>"};
    std::string text(priorities.at(static_cast<size_t>(std::clamp(severity, 0, 4))));
    text.append(line).push_back('\n');
    (void)!write(STDERR_FILENO, text.data(), text.size());
}

} // namespace Velmor
