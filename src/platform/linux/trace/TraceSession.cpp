#include "platform/linux/trace/TraceSession.h"

#include "platform/linux/base/Capabilities.h"
#include "platform/linux/base/KernelClock.h"
#include "platform/linux/base/SystemText.h"
#include "platform/linux/processes/ProcFile.h"
#include "platform/linux/threads/ServiceThread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velmor {

namespace {
constexpr int fetchPause = 20;      // milliseconds in which news may gather: waking for each costs more than reading it
constexpr int idlePause = 1000;     // milliseconds between two looks when nothing is told
constexpr int waitingPause = 20;    // milliseconds, while a fork may become a start by waiting
constexpr int readerPriority = -10; // before ordinary programs: what isn't fetched in time is lost
constexpr size_t noticesAtOnce = 100000;
constexpr int64_t comparePause = 100'000'000; // nanoseconds from a loss to the comparison that mends it
constexpr size_t nameSize = 16;               // of a thread
constexpr int mostLastRounds = 20;            // while more and more start

int64_t monotonicTime() {
    return KernelClock::now(CLOCK_MONOTONIC);
}

/// The kernel numbers what it tells by processor, and a gap shows only when the next message comes from that one. So
/// this thread visits each processor that it may, and has a message sent there by setting its own name.
void speakOnEachProcessor() {
    const auto processors = static_cast<size_t>(sysconf(_SC_NPROCESSORS_CONF));
    std::vector<cpu_set_t> usual(processors / CPU_SETSIZE + 1);
    std::vector<cpu_set_t> one(usual.size());
    const size_t size = usual.size() * sizeof(cpu_set_t);
    if (sched_getaffinity(0, size, usual.data()) != 0)
        return;
    std::array<char, nameSize> name{};
    prctl(PR_GET_NAME, name.data());
    for (size_t i = 0; i < processors; ++i) {
        CPU_ZERO_S(size, one.data());
        CPU_SET_S(i, size, one.data());
        if (sched_setaffinity(0, size, one.data()) == 0)
            prctl(PR_SET_NAME, name.data());
    }
    sched_setaffinity(0, size, usual.data());
}
} // namespace

TraceSession::TraceSession(LinuxProcesses& processes, LinuxKernelTrace::Sources sources)
    : processes_(processes), sources_(sources),
      book_(std::make_unique<ProcessBook>(*this, KernelClock::aheadOfMonotonic(CLOCK_BOOTTIME))) {}

TraceSession::~TraceSession() {
    stop();
}

bool TraceSession::start(std::string& shortcomings) {
    if (!openSources(shortcomings))
        return false;
    enterTable();
    reader_ = startServiceThread([this] { run(); });
    return true;
}

bool TraceSession::openSources(std::string& shortcomings) {
    if (!isInMachinesPidNamespace()) {
        shortcomings =
            "Process events are told of the machine's own process id namespace only, and this program runs in "
            "another. Run it there, or poll.";
        return false;
    }
    using Records = SidebandRings::Records;
    int connectorError = 0;
    int ringsError = 0;
    // The rings first: what executes once the connector tells of it has its name.
    if (sources_.rings)
        rings_ = SidebandRings::start(sources_.connector ? Records::names : Records::namesAndTasks);
    ringsError = errno;
    if (sources_.connector && !(connector_ = ProcessConnector::start())) {
        connectorError = errno;
        rings_ = rings_ ? SidebandRings::start(Records::namesAndTasks) : nullptr;
    }
    if (connectorError != 0)
        shortcomings += "The kernel's process connector can't be listened to (" +
                        std::string(std::strerror(connectorError)) +
                        "): it needs the capability CAP_NET_ADMIN in the machine's own name spaces. Exit codes of some "
                        "processes, and changes of their users, can't be learnt. ";
    if (sources_.rings && !rings_)
        shortcomings +=
            "The kernel's performance events can't be had (" + std::string(std::strerror(ringsError)) +
            "): they need the capability CAP_PERFMON. Names of some short-lived processes can't be learnt. ";
    if (!connector_ && !rings_)
        shortcomings += "Without either no process events can be followed. Grant the program one of them, or poll.";
    if (sources_.exitRecords && (!rings_ || !connector_) && (rings_ || connector_))
        epitaphs_.open();
    while (shortcomings.ends_with(' '))
        shortcomings.pop_back();
    return connector_ || rings_;
}

/// False if the system has no room for the look: a process that is left out would count as ended.
bool TraceSession::readTable(std::vector<TableEntry>& table) {
    DirectoryReader proc("/proc");
    bool isComplete = true;
    const bool isRead = forEachProcess(proc, [&](uint32_t pid, uint64_t /*inode*/) {
        TableEntry known;
        if (describe(pid, known))
            table.push_back(std::move(known));
        else
            isComplete = !isShortage(errno);
        return isComplete;
    });
    return isRead && isComplete;
}

/// Notes what runs already. Whoever asks for a session has entered what ran before; what has started since this program
/// did, and isn't held by anybody, may have escaped that, and is announced. If the table can't be read now, later.
void TraceSession::enterTable() {
    std::vector<TableEntry> table;
    TableEntry self;
    if (!readTable(table) || !describe(static_cast<uint32_t>(getpid()), self)) {
        compareDue_ = monotonicTime() + comparePause;
        return;
    }
    isTableEntered_ = true;
    endMissing(table);
    for (const TableEntry& known : table) {
        if (book_->knows(known.pid)) // told of while the table couldn't be read
            continue;
        TracedPointer note = known.isKernelThread ? nullptr : processes_.traced().find(known.pid);
        const bool isHeld = processes_.holds(known.pid);
        if (note)
            note->state = TracedProcess::runs; // its record stays: others may be looking at it
        const bool announced = !note && !isHeld && known.startTicks > self.startTicks;
        if (!note && !known.isKernelThread) {
            note = std::make_shared<TracedProcess>();
            note->pid = known.pid;
            note->parentPid = known.parentPid;
            note->executable = known.executable;
            note->owner = known.owner;
            note->startTicks = known.startTicks;
            if (!announced)
                processes_.traced().enter(note);
        }
        book_->enter(known, note, announced);
        epitaphs_.noteFile(known.pid, known.executable);
    }
    publish();
}

/// What somebody still holds, or was told of by an earlier session, and has ended unseen.
void TraceSession::endMissing(const std::vector<TableEntry>& table) {
    std::unordered_map<uint32_t, uint64_t> present;
    for (const TableEntry& known : table)
        present[known.pid] = known.startTicks;
    std::vector<TracedPointer> gone;
    processes_.traced().forEach([&](const TracedPointer& note) {
        const auto found = present.find(note->pid);
        const bool isOther =
            found != present.end() && note->startTicks != 0 && found->second > note->startTicks + tickTolerance;
        if (found == present.end() || isOther)
            gone.push_back(note);
    });
    for (TracedPointer& note : processes_.endedHeld())
        if (!present.contains(note->pid))
            gone.push_back(std::move(note));
    const auto now = static_cast<uint64_t>(KernelClock::nativeTime(KernelClock::now(CLOCK_REALTIME)));
    for (const TracedPointer& note : gone) {
        note->state = note->record ? TracedProcess::unwatched : TracedProcess::endedUnknown;
        processes_.traced().remove(note);
        queue_.push({false, now, note});
    }
    queue_.wake();
}

bool TraceSession::executable(uint32_t pid, int64_t since, std::string& path) {
    if (!sources_.processTable || hasExecutedSince(pid, since) || !readExecutable(pid, path))
        return false;
    if (connector_)
        connector_->fetch(ahead_, noticesAtOnce);
    noteExecutions(ahead_);
    if (hasExecutedSince(pid, since)) {
        path.clear();
        return false;
    }
    epitaphs_.noteFile(pid, path);
    return true;
}

void TraceSession::noteExecutions(const std::vector<ProcessNotice>& notices) {
    for (const ProcessNotice& notice : notices)
        if (notice.kind == ProcessNotice::Kind::executed)
            executions_[notice.pid] = notice.time;
}

/// The link of a process that has executed several programs shows the last of them.
bool TraceSession::hasExecutedSince(uint32_t pid, int64_t time) const {
    const auto last = executions_.find(pid);
    return last != executions_.end() && last->second > time;
}

bool TraceSession::describe(uint32_t pid, TableEntry& entry) {
    entry.knownAt = monotonicTime();
    ProcStat line;
    errno = 0;
    if (!readLeaderStat(pid, line) || line.hasEnded() || !readOwner(pid, entry.owner))
        return false;
    entry.pid = pid;
    entry.parentPid = line.parentPid;
    entry.threads = line.threads;
    entry.isLeaderless = line.state == 'Z' || line.state == 'X';
    entry.startTicks = line.startTime;
    entry.startTime =
        static_cast<int64_t>(line.startTime) * KernelClock::tick() - KernelClock::aheadOfMonotonic(CLOCK_BOOTTIME);
    entry.isKernelThread = line.isKernelThread();
    entry.namedAt = monotonicTime();
    if (!entry.isKernelThread)
        readExecutable(pid, entry.executable);
    return true;
}

bool TraceSession::hasEnded(uint32_t pid, uint64_t startTicks) {
    ProcStat line;
    errno = 0;
    if (!readLeaderStat(pid, line))
        return errno == ENOENT || errno == ESRCH;
    return line.hasEnded() || (startTicks != 0 && !isSameStart(line.startTime, startTicks));
}

bool TraceSession::epitaph(uint32_t pid, uint64_t startTicks, std::string& executable, uid_t& owner,
                           uint32_t& exitCode) {
    const ExitRecord* record = epitaphs_.find(pid);
    if (!record)
        return processes_.endedCode(pid, startTicks, exitCode);
    executable = epitaphs_.pathOf(*record);
    if (executable.empty())
        executable = record->commandName;
    maskControlBytes(executable);
    owner = record->owner;
    exitCode = exitCodeOf(record->waitStatus);
    return true;
}

void TraceSession::stop() {
    if (reader_.joinable()) {
        stop_.ring();
        reader_.join();
        // What ends until it has a record of its own is still told by the events.
        for (int i = 0; i < mostLastRounds && release(); ++i)
            round(true);
    }
    if (!book_) // it has been stopped before
        return;
    book_->forEach([](const TracedPointer& note) {
        if (note->state == TracedProcess::runs)
            note->state = TracedProcess::unwatched;
    });
    giveSourcesUp();
    ended_ = true;
    queue_.wake();
}

/// A reader that was ended by force never gives its session back, which must not keep descriptors and rings for ever.
void TraceSession::giveSourcesUp() {
    connector_.reset();
    rings_.reset();
    epitaphs_ = {};
    book_.reset();
    executions_.clear();
}

/// Gives what runs a record of its own. False if all had one.
bool TraceSession::release() {
    bool anyLacked = false;
    book_->forEach([&](const TracedPointer& note) {
        if (note->state != TracedProcess::runs || note->record)
            return;
        anyLacked = true;
        processes_.release(*note);
    });
    return anyLacked;
}

void TraceSession::run() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), readerPriority); // refused: then not
    while (true) {
        const bool isWaiting = book_->isWaiting() || compareDue_ != 0;
        const bool goesOn =
            (!connector_ || pauseUntil(isWaiting ? waitingPause : idlePause, true)) && pauseUntil(fetchPause, false);
        round(!goesOn); // what happened until the end is told
        if (!goesOn)
            return;
    }
}

/// False if the session is to end.
bool TraceSession::pauseUntil(int milliseconds, bool forNews) {
    pollfd wanted[2] = {{stop_.descriptor(), POLLIN, 0}, {connector_ ? connector_->descriptor() : -1, POLLIN, 0}};
    poll(wanted, forNews ? 2 : 1, milliseconds);
    return wanted[0].revents == 0;
}

void TraceSession::round(bool isLast) {
    if (queue_.isFull() && !isLast)
        return;
    fetch();
    noteLosses();
    const int64_t now = monotonicTime();
    if (compareDue_ != 0 && (now >= compareDue_ || isLast))
        mend(now);
    book_->tick(now);
    publish();
}

/// What the rings lose beside the connector costs names at the most.
void TraceSession::countLosses() {
    const uint64_t ofRings = rings_ ? rings_->lost() : 0;
    lost_ = connector_ ? connector_->lost() : ofRings;
    namesLost_ = connector_ ? ofRings : 0;
}

/// A number that rises whenever a source tells of a loss.
uint64_t TraceSession::signsOfLoss() const {
    return (connector_ ? connector_->lost() + connector_->overruns() : 0) + (rings_ ? rings_->lost() : 0);
}

/// A gap that shows only while the books are being mended has them mended once more: it may be a new one.
void TraceSession::noteLosses() {
    const uint64_t seen = signsOfLoss();
    if (seen != lossesSeen_ && compareDue_ == 0)
        compareDue_ = monotonicTime() + comparePause;
    lossesSeen_ = seen;
}

/// Sets the books right by the process table, and counts what was lost.
void TraceSession::mend(int64_t now) {
    compareDue_ = 0;
    speakOnEachProcessor();
    std::vector<TableEntry> table;
    const bool isComplete = isTableEntered_ && readTable(table);
    fetch();
    countLosses();
    if (!isTableEntered_)
        enterTable();
    else if (isComplete)
        book_->compare(table, now);
    else
        compareDue_ = now + comparePause;
}

/// The connector first: what a process executes stands in its ring before the connector tells of it.
void TraceSession::fetch() {
    const int64_t until = monotonicTime();
    notices_ = std::move(ahead_);
    ahead_.clear();
    executions_.clear();
    if (connector_)
        connector_->fetch(notices_, noticesAtOnce);
    if (rings_)
        rings_->fetch();
    if (!connector_)
        rings_->takeNotices(until, notices_);
    noteExecutions(notices_);
    epitaphs_.fetch();
    book_->followBootClock(KernelClock::aheadOfMonotonic(CLOCK_BOOTTIME));
    book_->doubt(signsOfLoss() != lossesDoubted_);
    lossesDoubted_ = signsOfLoss();
    for (const ProcessNotice& notice : notices_)
        apply(notice);
}

void TraceSession::apply(const ProcessNotice& notice) {
    switch (notice.kind) {
    case ProcessNotice::Kind::forked:
        book_->forked(notice.time, notice.other, notice.pid);
        break;
    case ProcessNotice::Kind::threadStarted:
        book_->threadStarted(notice.time, notice.pid);
        break;
    case ProcessNotice::Kind::executed:
        takeExecution(notice);
        break;
    case ProcessNotice::Kind::ownerChanged:
        book_->ownerChanged(notice.time, notice.pid, notice.other);
        break;
    case ProcessNotice::Kind::exited:
        takeUntoldExecution(notice);
        book_->exited(notice.time, notice.pid, notice.other,
                      connector_ ? int64_t{exitCodeOf(notice.status)} : ProcessBook::unknownCode);
        break;
    }
}

void TraceSession::takeExecution(const ProcessNotice& notice) {
    if (!connector_)
        checkOwner(notice);
    SidebandRings::Executed program;
    if (rings_)
        program = rings_->takeExecuted(notice.pid, book_->changedAt(notice.pid), notice.time);
    book_->executed(notice.time, notice.pid, std::move(program.path), program.file);
}

/// A process that is killed while it executes has begun to run the program, though only the rings tell so.
void TraceSession::takeUntoldExecution(const ProcessNotice& exited) {
    SidebandRings::Executed program;
    if (rings_)
        program = rings_->takeExecuted(exited.pid, book_->changedAt(exited.pid), exited.time);
    if (!program.path.empty())
        book_->executed(program.time, exited.pid, std::move(program.path), program.file);
}

/// The rings don't tell of a change of the owner.
void TraceSession::checkOwner(const ProcessNotice& executed) {
    if (uid_t owner = 0; readOwner(executed.pid, owner))
        book_->ownerChanged(executed.time, executed.pid, owner);
    else if (const ExitRecord* exit = epitaphs_.find(executed.pid))
        book_->ownerChanged(executed.time, executed.pid, exit->owner);
}

void TraceSession::publish() {
    bookEvents_.clear();
    book_->takeEvents(bookEvents_);
    const int64_t offset = KernelClock::aheadOfMonotonic(CLOCK_REALTIME);
    for (BookEvent& event : bookEvents_)
        queue_.push({event.isStart, static_cast<uint64_t>(KernelClock::nativeTime(event.time + offset)),
                     std::move(event.process)});
    if (!bookEvents_.empty())
        queue_.wake();
}

} // namespace Velmor
