#include "platform/linux/ProcFile.h"

#include "platform/linux/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace Velmor {

namespace {
constexpr uint32_t kernelThreadFlag = 0x00200000; // PF_KTHREAD
constexpr std::string_view deletedMark = " (deleted)";
constexpr size_t startBlock = 4096;

// Places of the fields behind the command name, counted from 0.
enum class Field : size_t { state = 0, parent = 1, flags = 6, threads = 17, startTime = 19, waitStatus = 49 };

bool sameFile(const std::string& path, const std::string& link) {
    struct stat byPath {};
    struct stat byLink {};
    return stat(path.c_str(), &byPath) == 0 && stat(link.c_str(), &byLink) == 0 && byPath.st_ino == byLink.st_ino &&
           byPath.st_dev == byLink.st_dev;
}

bool readLink(const std::string& link, std::string& target) {
    std::array<char, PATH_MAX + 16> buffer; // room for the kernel's mark behind the longest path
    const ssize_t size = readlink(link.c_str(), buffer.data(), buffer.size());
    if (size < 0)
        return false;
    target.assign(buffer.data(), static_cast<size_t>(size));
    return true;
}

} // namespace

uint32_t otherThread(uint32_t pid) {
    // The first entries suffice.
    const FileDescriptor directory(open(procPath(pid, "task").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct Entry { // as the kernel writes it
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        uint8_t type;
        char name[1];
    };
    alignas(8) std::array<char, 256> buffer;
    const long size = directory ? syscall(SYS_getdents64, directory.get(), buffer.data(), buffer.size()) : 0;
    for (long at = 0; at < size;) {
        const auto* entry = reinterpret_cast<const Entry*>(buffer.data() + at);
        const auto id = static_cast<uint32_t>(std::strtoul(static_cast<const char*>(entry->name), nullptr, 10));
        if (id != 0 && id != pid)
            return id;
        at += entry->length;
    }
    return 0;
}

bool ProcStat::isKernelThread() const {
    return (flags & kernelThreadFlag) != 0;
}

bool ProcStat::hasEnded() const {
    return (state == 'Z' || state == 'X') && threads <= 1;
}

std::string procPath(uint32_t pid, const char* entry) {
    std::string path = "/proc/" + std::to_string(pid);
    if (*entry)
        path.append("/").append(entry);
    return path;
}

bool readProcFile(const std::string& path, std::string& text) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        return false;
    size_t size = 0;
    text.resize(startBlock);
    while (true) {
        const ssize_t count = read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        size += static_cast<size_t>(count);
        if (count == 0) // a short piece is no end: the kernel ends one at the border of a line
            break;
        if (size == text.size())
            text.resize(2 * text.size());
    }
    text.resize(size);
    return true;
}

namespace {
bool readStatLine(const std::string& path, ProcStat& stat) {
    std::string text;
    if (!readProcFile(path, text))
        return false;
    const size_t nameEnd = text.rfind(')'); // the name itself may hold anything
    if (nameEnd == std::string::npos)
        return false;
    const char* position = text.c_str() + std::min(nameEnd + 2, text.size());
    for (size_t field = 0; *position; ++field) {
        char* end = nullptr;
        if (field == static_cast<size_t>(Field::state)) {
            stat.state = *position;
            end = const_cast<char*>(position) + 1;
        } else {
            const unsigned long long number = std::strtoull(position, &end, 10);
            if (end == position)
                break;
            if (field == static_cast<size_t>(Field::parent))
                stat.parentPid = static_cast<uint32_t>(number);
            else if (field == static_cast<size_t>(Field::flags))
                stat.flags = static_cast<uint32_t>(number);
            else if (field == static_cast<size_t>(Field::threads))
                stat.threads = static_cast<uint32_t>(number);
            else if (field == static_cast<size_t>(Field::startTime))
                stat.startTime = number;
            else if (field == static_cast<size_t>(Field::waitStatus))
                stat.waitStatus = static_cast<uint32_t>(number);
        }
        position = end;
        while (*position == ' ')
            ++position;
    }
    return stat.state != 0;
}

} // namespace

bool readProcStat(uint32_t pid, ProcStat& stat) {
    return readStatLine(procPath(pid, "stat"), stat);
}

bool readLeaderStat(uint32_t pid, ProcStat& stat) {
    return readStatLine(procPath(pid, "task/") + std::to_string(pid) + "/stat", stat);
}

bool readExecutable(uint32_t pid, std::string& path) {
    std::string link = procPath(pid, "exe");
    if (!readLink(link, path)) {
        const int error = errno;
        const uint32_t other = error == ENOENT ? otherThread(pid) : 0;
        link = procPath(pid, "task/") + std::to_string(other) + "/exe";
        if (other == 0 || !readLink(link, path)) {
            errno = error;
            return false;
        }
    }
    // A running file that was deleted bears the mark; one that is really called so doesn't lose it.
    if (path.ends_with(deletedMark) && !sameFile(path, link))
        path.resize(path.size() - deletedMark.size());
    maskControlBytes(path);
    return true;
}

void maskControlBytes(std::string& text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
}

uint32_t exitCodeOf(uint32_t waitStatus) {
    const uint32_t signal = waitStatus & 0x7fU;
    return signal == 0 ? (waitStatus >> 8) & 0xffU : 128 + signal;
}

} // namespace Velmor
