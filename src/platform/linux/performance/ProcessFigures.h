#pragma once

#include "platform/linux/base/DirectoryReader.h"
#include "platform/linux/processes/ProcFile.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace Velmor {

/// What the kernel counts of a process. What may not be read is 0.
struct ProcessFigures {
    uint32_t pid = 0;
    std::string name;            // the command name
    uint64_t startTime = 0;      // clock ticks since the system's start
    uint64_t processorTime = 0;  // nanoseconds
    uint64_t userTime = 0;       // nanoseconds, in steps of the clock tick
    uint64_t privilegedTime = 0; // the same
    uint64_t virtualBytes = 0;
    uint64_t workingSet = 0;   // bytes in memory
    uint64_t privateBytes = 0; // anonymous memory, in memory or swapped out
    uint32_t threads = 0;
    uint32_t handles = 0;   // 0 where the kernel tells no number
    uint64_t ioRead = 0;    // bytes asked of read calls
    uint64_t ioWritten = 0; // bytes given to write calls
};

/// Reads the figures of all processes, again and again. The files of a process stay open from look to look, which
/// halves what a look costs, as long as no more than half of the descriptors that the system allows are used for it.
/// One thread at a time.
class ProcessFigureReader {
public:
    ProcessFigureReader();

    /// The processes that run, without kernel threads, in the order of their ids. The list is valid until the next
    /// call. False if /proc can't be read.
    bool read();
    const std::vector<ProcessFigures>& processes() const { return processes_; }

private:
    /// The files of one process. What is read through them is never another process's, since each is bound to its own.
    struct Files {
        FileDescriptor stat;
        FileDescriptor status;
        FileDescriptor io;
        uint64_t inode = 0; // of the process's directory
        uint64_t round = 0; // of the last look that saw it
        bool isKernelThread = false;
    };

    bool look(uint32_t pid, uint64_t inode, ProcessFigures& figures);
    bool open(uint32_t pid, Files& files) const;
    bool openAtAnyPrice(uint32_t pid, Files& files);
    bool readFrom(Files& files, ProcessFigures& figures);
    bool takeStat(const Files& files, ProcessFigures& figures, bool& isKernelThread);
    void takeMemory(const Files& files, ProcessFigures& figures);
    void takeInputOutput(const Files& files, ProcessFigures& figures);
    bool readText(const FileDescriptor& file);
    void forgetGone();

    struct Entry {
        uint32_t pid;
        uint64_t inode;
    };

    DirectoryReader proc_;
    size_t mostKept_ = 0; // processes whose files stay open
    size_t kept_ = 0;
    uint64_t round_ = 0;
    std::unordered_map<uint32_t, Files> files_;
    std::vector<Entry> entries_; // of /proc, reused
    std::vector<ProcessFigures> processes_;
    ProcStat stat_;    // of the process at hand, reused
    std::string text_; // of the file at hand, reused
};

} // namespace Velmor
