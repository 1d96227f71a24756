#pragma once

#include "platform/linux/base/DirectoryReader.h"
#include "platform/linux/base/FileIdentity.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace Velmor {

/// What a process's `stat` line tells.
struct ProcStat {
    std::string name; // the command name
    char state = 0;
    uint32_t parentPid = 0;
    uint32_t flags = 0;
    uint32_t threads = 0;
    uint64_t userTime = 0;       // clock ticks
    uint64_t privilegedTime = 0; // clock ticks
    uint64_t startTime = 0;      // clock ticks since the system's start
    uint64_t virtualBytes = 0;
    uint32_t waitStatus = 0; // of a zombie, as a parent gets it; 0 to whoever may not know it

    bool isKernelThread() const;
    /// The whole thread group has ended; a main thread that ended before the others doesn't count.
    bool hasEnded() const;
};

/// "/proc/<pid>/<entry>"; for an empty entry the process's directory.
std::string procPath(uint32_t pid, const char* entry);

/// Reads a small file of /proc whole; false if it can't be read, with errno.
bool readProcFile(const std::string& path, std::string& text);

/// Takes a number off the front, with the blanks before it and without its sign; 0 if there is none.
uint64_t takeNumber(std::string_view& rest);

/// Reads a `stat` line; false if it is none.
bool parseProcStat(std::string_view line, ProcStat& stat);
bool readProcStat(uint32_t pid, ProcStat& stat);

/// The same of the main thread alone, which costs nothing for the other threads. It has no `waitStatus` of the group.
bool readLeaderStat(uint32_t pid, ProcStat& stat);

/// Visits the ids of all processes in /proc, kernel threads and zombies among them, each with the inode of its
/// directory, until a visit gives false. False with errno if /proc can't be read.
bool forEachProcess(DirectoryReader& proc, const std::function<bool(uint32_t pid, uint64_t inode)>& visit);

/// Another thread of a group whose main thread has ended; 0 if there is none. Costs the same however many there are.
uint32_t otherThread(uint32_t pid);

/// The kernel's link to the executable as it is now; empty if it is too long to be told. False with errno.
bool readExecutableLink(uint32_t pid, std::string& link);

/// The directory that is the process's own root; empty if that is everybody's, or can't be told. And how much of a path
/// it is.
std::string rootOf(uint32_t pid);
size_t rootLength(std::string_view path, std::string_view root);

/// The executable that such a link means: by its path in the process's own root, without the mark of a deleted file,
/// and with "?" for control bytes.
std::string executableOfLink(uint32_t pid, std::string link);

/// Both at once. False with errno.
bool readExecutable(uint32_t pid, std::string& path);

/// Whether the path of what a process runs leads this program to that very file, or did before it was deleted.
bool isExecutableHere(uint32_t pid, const std::string& path);

/// Whether a path leads this program to a file that the kernel named by its file system's device.
bool leadsTo(const std::string& path, const FileIdentity& file);

/// The path of a mapped file, without the mark of a deleted one unless it is really called so, and with "?" for control
/// bytes.
std::string pathOfMapping(std::string_view path, uint64_t inode);

/// The effective user: that of the directory itself, also if nothing may be dumped. False if it has gone.
bool readOwner(uint32_t pid, uid_t& owner);

/// The exit code as the collector counts it: the exit status, or 128 plus the signal.
uint32_t exitCodeOf(uint32_t waitStatus);

} // namespace Velmor
