#include "platform/linux/processes/ProcFile.h"

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/base/SystemText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace Velmor {

namespace {
constexpr uint32_t kernelThreadFlag = 0x00200000; // PF_KTHREAD
constexpr size_t startBlock = 4096;

// Places of the fields behind the command name, counted from the state.
enum class Field : size_t {
    parent = 1,
    flags = 6,
    userTime = 11,
    privilegedTime = 12,
    threads = 17,
    startTime = 19,
    virtualBytes = 20,
    waitStatus = 49,
    count = 50
};
using Fields = std::array<uint64_t, static_cast<size_t>(Field::count)>;

uint64_t at(const Fields& fields, Field field) {
    return fields.at(static_cast<size_t>(field));
}

bool readLink(const std::string& link, std::string& target) {
    std::array<char, PATH_MAX + 16> buffer; // room for the kernel's mark behind the longest path
    const ssize_t size = readlink(link.c_str(), buffer.data(), buffer.size());
    if (size < 0)
        return false;
    target.assign(buffer.data(), static_cast<size_t>(size));
    return true;
}

/// The id that an entry of /proc or of a task directory is named by; 0 if it is another one.
uint32_t idOf(const char* name) {
    return static_cast<uint32_t>(std::strtoul(name, nullptr, 10));
}
} // namespace

bool forEachProcess(DirectoryReader& proc, const std::function<bool(uint32_t pid, uint64_t inode)>& visit) {
    return proc.forEach([&visit](const char* name, uint64_t inode) {
        const uint32_t pid = idOf(name);
        return pid == 0 || visit(pid, inode);
    });
}

uint32_t otherThread(uint32_t pid) {
    constexpr size_t firstEntries = 256; // bytes; they suffice
    uint32_t other = 0;
    DirectoryReader(procPath(pid, "task"))
        .forEach(
            [&](const char* name, uint64_t /*inode*/) {
                const uint32_t id = idOf(name);
                other = id == pid ? 0 : id;
                return other == 0;
            },
            firstEntries);
    return other;
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

uint64_t takeNumber(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
    rest.remove_prefix(rest.starts_with('-') ? 1 : 0);
    uint64_t number = 0;
    const auto end = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    rest.remove_prefix(static_cast<size_t>(end.ptr - rest.data()));
    return number;
}

bool parseProcStat(std::string_view line, ProcStat& stat) {
    const size_t nameBegin = line.find('(');
    const size_t nameEnd = line.rfind(')'); // the name itself may hold anything
    if (nameBegin == std::string_view::npos || nameEnd == std::string_view::npos || nameEnd + 3 > line.size())
        return false;
    stat.name = line.substr(nameBegin + 1, nameEnd - nameBegin - 1);
    std::string_view rest = line.substr(nameEnd + 2);
    stat.state = rest.front();
    rest.remove_prefix(1);
    const bool isOver = stat.state == 'Z' || stat.state == 'X';
    const auto wanted = static_cast<size_t>(isOver ? Field::waitStatus : Field::virtualBytes);
    Fields fields{};
    for (size_t field = 1; field <= wanted; ++field)
        fields.at(field) = takeNumber(rest);
    stat.parentPid = static_cast<uint32_t>(at(fields, Field::parent));
    stat.flags = static_cast<uint32_t>(at(fields, Field::flags));
    stat.userTime = at(fields, Field::userTime);
    stat.privilegedTime = at(fields, Field::privilegedTime);
    stat.threads = static_cast<uint32_t>(at(fields, Field::threads));
    stat.startTime = at(fields, Field::startTime);
    stat.virtualBytes = at(fields, Field::virtualBytes);
    stat.waitStatus = static_cast<uint32_t>(at(fields, Field::waitStatus));
    return true;
}

namespace {
bool readStatLine(const std::string& path, ProcStat& stat) {
    std::string text;
    return readProcFile(path, text) && parseProcStat(text, stat);
}
} // namespace

bool readProcStat(uint32_t pid, ProcStat& stat) {
    return readStatLine(procPath(pid, "stat"), stat);
}

bool readLeaderStat(uint32_t pid, ProcStat& stat) {
    return readStatLine(procPath(pid, "task/") + std::to_string(pid) + "/stat", stat);
}

bool readExecutableLink(uint32_t pid, std::string& link) {
    if (readLink(procPath(pid, "exe"), link))
        return true;
    const int error = errno;
    const uint32_t other = error == ENOENT ? otherThread(pid) : 0;
    if (other != 0 && readLink(procPath(pid, "task/") + std::to_string(other) + "/exe", link))
        return true;
    link.clear();
    errno = error;
    return error == ENAMETOOLONG;
}

std::string rootOf(uint32_t pid) {
    std::string root;
    return readLink(procPath(pid, "root"), root) && root != "/" ? root : std::string();
}

size_t rootLength(std::string_view path, std::string_view root) {
    return path.size() > root.size() && path.starts_with(root) && path[root.size()] == '/' ? root.size() : 0;
}

std::string executableOfLink(uint32_t pid, std::string link) {
    // A running file that was deleted bears the mark; one that is really called so doesn't lose it.
    if (link.ends_with(deletedMark)) {
        const auto byPath = FileIdentity::of(link);
        if (!byPath || byPath != FileIdentity::of(procPath(pid, "exe")))
            link.resize(link.size() - deletedMark.size());
    }
    link.erase(0, rootLength(link, rootOf(pid)));
    maskControlBytes(link);
    return link;
}

bool readExecutable(uint32_t pid, std::string& path) {
    std::string link;
    if (!readExecutableLink(pid, link))
        return false;
    path = executableOfLink(pid, std::move(link));
    return true;
}

bool isExecutableHere(uint32_t pid, const std::string& path) {
    struct stat file {};
    if (stat(procPath(pid, "exe").c_str(), &file) != 0)
        return true; // nobody can tell
    if (file.st_nlink == 0)
        return FileIdentity::of(procPath(pid, "root")) == FileIdentity::of("/");
    return FileIdentity::of(path) == FileIdentity(file);
}

bool leadsTo(const std::string& path, const FileIdentity& file) {
    const auto here = FileIdentity::of(path);
    // Some file systems show their files under devices of no driver, which mappings don't tell.
    return here && here->inode == file.inode && (here->device == file.device || major(here->device) == 0);
}

std::string pathOfMapping(std::string_view path, uint64_t inode) {
    std::string text(path);
    if (path.ends_with(deletedMark)) {
        const auto byPath = FileIdentity::of(text);
        if (!byPath || byPath->inode != inode)
            text.resize(text.size() - deletedMark.size());
    }
    maskControlBytes(text);
    return text;
}

bool readOwner(uint32_t pid, uid_t& owner) {
    struct stat directory {};
    if (stat(procPath(pid, "").c_str(), &directory) != 0)
        return false;
    owner = directory.st_uid;
    return true;
}

uint32_t exitCodeOf(uint32_t waitStatus) {
    const uint32_t signal = waitStatus & 0x7fU;
    return signal == 0 ? (waitStatus >> 8) & 0xffU : 128 + signal;
}

} // namespace Velmor
