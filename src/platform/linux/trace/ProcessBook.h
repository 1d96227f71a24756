#pragma once

#include "platform/linux/processes/TracedProcess.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Velmor {

/// A process as a look at the process table shows it.
struct TableEntry {
    uint32_t pid = 0;
    uint32_t parentPid = 0;
    uid_t owner = 0;
    uint32_t threads = 1;
    uint64_t startTicks = 0; // clock ticks since the system's start
    int64_t startTime = 0;   // the same in nanoseconds of the events' clock; below 0 if the machine has slept since
    int64_t knownAt = 0;     // when the look at it began: what an event told of before is contained in it
    int64_t namedAt = 0;     // when its executable was read: an execution of before is contained
    bool isKernelThread = false;
    bool isLeaderless = false; // its main thread has ended, others run
    std::string executable;    // empty if it can't be read
};

/// What the book asks about a process when the events alone don't tell.
class ProcessFacts {
public:
    virtual ~ProcessFacts() = default;
    /// What a process runs that it has executed at `since`. False if it is gone, or has executed another since.
    virtual bool executable(uint32_t pid, int64_t since, std::string& path) = 0;
    virtual bool describe(uint32_t pid, TableEntry& entry) = 0;
    /// Whether no thread of it lives; false if that can't be told. `startTicks` as in `TableEntry`, 0 if unknown.
    virtual bool hasEnded(uint32_t pid, uint64_t startTicks) = 0;
    /// What is left of a process that is gone: its exit code, and, if anybody wrote them down, its executable and
    /// owner. False if nothing is. `startTicks` as above.
    virtual bool epitaph(uint32_t pid, uint64_t startTicks, std::string& executable, uid_t& owner,
                         uint32_t& exitCode) = 0;
};

/// One start or end, as it is handed over.
struct BookEvent {
    bool isStart = false;
    int64_t time = 0; // nanoseconds of the events' clock
    TracedPointer process;
};

/// Turns what the kernel tells of forks, executions and exits into starts and ends of applications:
/// - A process that executes a program starts at that moment. One that has executed none for 50 ms, or ends without, is
///   a start as well, dated at its fork: it runs its parent's program.
/// - A process that has started and executes another program ends, and starts anew at the same moment.
/// - A process ends with its last thread.
/// Times never go back for one process. One thread uses an object.
class ProcessBook {
public:
    static constexpr int64_t forkPatience = 50'000'000; // nanoseconds
    static constexpr int64_t unknownCode = TracedProcess::endedUnknown;

    /// `bootOffset` as in `followBootClock`.
    ProcessBook(ProcessFacts& facts, int64_t bootOffset) : facts_(facts), bootOffset_(bootOffset) {}

    /// A process that ran before the events began, under its note; it is announced as a start only if asked for.
    void enter(const TableEntry& entry, const TracedPointer& note, bool announce);

    void forked(int64_t time, uint32_t parentPid, uint32_t pid);
    void threadStarted(int64_t time, uint32_t pid);
    /// `path` is empty if nobody told it. An execution that brings no other program replaces nothing.
    void executed(int64_t time, uint32_t pid, std::string path, std::optional<FileIdentity> file = {});
    void ownerChanged(int64_t time, uint32_t pid, uid_t owner);
    /// A thread of a process has ended, with this exit code.
    void exited(int64_t time, uint32_t pid, uint32_t thread, int64_t code);

    /// Whether something was lost of what is told until the next call: no count of threads can be relied on then.
    void doubt(bool isLossy);

    /// How far the clock of the process table is ahead of the events' clock at the end of what is told until the next
    /// call, in nanoseconds: it grows while the machine sleeps.
    void followBootClock(int64_t offset);

    /// Announces what has waited long enough.
    void tick(int64_t now);

    /// Sets the books right by a table that was read at `readAt`, after all events of before have been entered.
    void compare(const std::vector<TableEntry>& table, int64_t readAt);

    /// Whether something may be announced soon although nothing more is told.
    bool isWaiting() const { return !forks_.empty(); }
    bool knows(uint32_t pid) const { return entries_.contains(pid); }
    /// When a process was forked or executed last, as far as is known.
    int64_t changedAt(uint32_t pid) const;
    void takeEvents(std::vector<BookEvent>& events);
    void forEach(const std::function<void(const TracedPointer&)>& visit) const;

private:
    /// One process that lives, or whose end isn't certain yet.
    /// - `announced` is null, or a start of it has been announced and no end; it then names what `executable` names.
    /// - What isn't announced and is to be stands in `forks_` under its `since`, unless it is of the kernel.
    /// - `isLeaderless` implies that its id stands in `leaderless_`; `lastExit` is then the earliest possible end.
    /// - `isExact` implies that `threads` counts those that live, at least one.
    /// - Events of before `knownAt` change nothing; executions of before `namedAt` don't either.
    struct Entry {
        uint32_t parentPid = 0;
        uid_t owner = TracedProcess::unknownOwner;
        uint32_t threads = 1;
        bool isExact = false;             // `threads` is certain: an end needs no look
        bool isLeaderless = false;        // its main thread has ended, or it may have
        int64_t lastCode = unknownCode;   // of the threads that have ended
        int64_t lastExit = 0;             // when the last of them did
        bool isOfKernel = false;          // and has executed nothing
        bool hasExecuted = false;         // since its fork
        bool lacksName = false;           // nobody could name what it runs
        int64_t since = 0;                // its fork, or its last execution
        int64_t knownAt = 0;              // events of before are contained in it
        int64_t namedAt = 0;              // executions of before are
        uint64_t startTicks = 0;          // 0: unknown
        std::string executable;           // what it runs
        std::optional<FileIdentity> file; // of that, if it was told
        TracedPointer announced;          // null until its start has been
    };
    using Entries = std::unordered_map<uint32_t, Entry>;

    void announce(uint32_t pid, Entry& entry);
    void end(Entries::iterator place, int64_t time, int64_t code);
    void finish(const TracedPointer& process, int64_t time, int64_t code);
    void fillFromEpitaph(uint32_t pid, Entry& entry, int64_t& code);
    void mend(uint32_t pid, Entry& entry, const TableEntry& known, int64_t readAt);
    void announcePending(int64_t now);
    void noteLeaderless(uint32_t pid, Entry& entry);
    void noteThreads(uint32_t pid, Entry& entry, const TableEntry& known);
    void checkLeaderless(int64_t now);
    Entry* findSince(uint32_t pid, int64_t time);

    struct Waiting {
        uint32_t pid;
        int64_t since;
    };

    ProcessFacts& facts_;
    int64_t bootOffset_;
    bool hasSlept_ = false;
    bool isLossy_ = false;
    Entries entries_;
    std::deque<Waiting> forks_;        // not announced yet, in the order of their times
    std::vector<uint32_t> leaderless_; // ids that are, or were, leaderless
    int64_t lastLeaderlessCheck_ = 0;
    std::vector<BookEvent> events_;
};

} // namespace Velmor
