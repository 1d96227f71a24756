#include "platform/linux/trace/ProcessBook.h"

#include "platform/linux/base/KernelClock.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr int64_t leaderlessInterval = 200'000'000; // nanoseconds between two looks at processes without main thread

std::string_view nameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}
} // namespace

/// The entry of an id, unless it knows already what was true at that time.
ProcessBook::Entry* ProcessBook::findSince(uint32_t pid, int64_t time) {
    const auto found = entries_.find(pid);
    return found == entries_.end() || time < found->second.knownAt ? nullptr : &found->second;
}

void ProcessBook::enter(const TableEntry& known, const TracedPointer& note, bool announced) {
    Entry& entry = entries_[known.pid];
    entry = {};
    entry.parentPid = known.parentPid;
    entry.owner = known.owner;
    entry.isOfKernel = known.isKernelThread;
    entry.since = known.startTime;
    entry.knownAt = known.knownAt;
    entry.startTicks = known.startTicks;
    entry.namedAt = known.namedAt;
    entry.executable = known.executable;
    noteThreads(known.pid, entry, known);
    if (note)
        entry.announced = note;
    if (announced && !entry.isOfKernel)
        announce(known.pid, entry);
}

void ProcessBook::announce(uint32_t pid, Entry& entry) {
    if (!entry.announced) {
        entry.announced = std::make_shared<TracedProcess>();
        entry.announced->pid = pid;
        entry.announced->parentPid = entry.parentPid;
        entry.announced->executable = entry.executable;
        entry.announced->file = entry.file;
        entry.announced->owner = entry.owner;
        entry.announced->startTicks = entry.startTicks;
    }
    events_.push_back({true, entry.since, entry.announced});
}

void ProcessBook::forked(int64_t time, uint32_t parentPid, uint32_t pid) {
    if (const auto found = entries_.find(pid); found != entries_.end()) {
        if (time < found->second.knownAt)
            return;
        end(found, time, unknownCode); // its end was lost, since the id is in use again
    }
    Entry entry;
    entry.parentPid = parentPid;
    entry.since = time;
    entry.knownAt = time;
    entry.isExact = !isLossy_;
    if (!hasSlept_) // else it may have been before or after
        entry.startTicks = static_cast<uint64_t>((time + bootOffset_) / KernelClock::tick());
    if (const auto parent = entries_.find(parentPid); parent != entries_.end()) {
        entry.owner = parent->second.owner;
        entry.isOfKernel = parent->second.isOfKernel;
        entry.executable = parent->second.executable;
        entry.file = parent->second.file;
        entry.lacksName = parent->second.lacksName;
    } else {
        TableEntry known;
        if (facts_.describe(pid, known)) {
            entry.owner = known.owner;
            entry.isOfKernel = known.isKernelThread;
            entry.executable = known.executable;
        }
    }
    entries_.emplace(pid, std::move(entry));
    forks_.push_back({pid, time});
}

void ProcessBook::threadStarted(int64_t time, uint32_t pid) {
    if (Entry* entry = findSince(pid, time))
        ++entry->threads;
}

void ProcessBook::executed(int64_t time, uint32_t pid, std::string path, std::optional<FileIdentity> file) {
    auto found = entries_.find(pid);
    if (found == entries_.end()) { // its fork was lost
        TableEntry known;
        found = entries_.try_emplace(pid).first;
        if (facts_.describe(pid, known)) {
            found->second.parentPid = known.parentPid;
            found->second.owner = known.owner;
            found->second.startTicks = known.startTicks;
        }
    }
    Entry& entry = found->second;
    if (time < std::max(entry.knownAt, entry.namedAt))
        return;
    if (!entry.announced && entry.hasExecuted)
        announce(pid, entry); // it has waited for its name in vain
    const bool isNamed = !path.empty() || facts_.executable(pid, time, path);
    entry.isOfKernel = false;
    entry.hasExecuted = true;
    entry.isLeaderless = false; // the other threads have ended, but count until they are told to have
    entry.lastCode = unknownCode;
    if (entry.announced && !path.empty() && path == entry.executable)
        return;
    if (entry.announced)
        finish(entry.announced, time, 0); // it is replaced, and leaves no code
    entry.announced.reset();
    entry.since = time;
    entry.executable = std::move(path);
    entry.file = file;
    entry.lacksName = !isNamed;
    if (isNamed)
        announce(pid, entry);
    else
        forks_.push_back({pid, time});
}

int64_t ProcessBook::changedAt(uint32_t pid) const {
    const auto found = entries_.find(pid);
    return found == entries_.end() ? 0 : found->second.since;
}

void ProcessBook::ownerChanged(int64_t time, uint32_t pid, uid_t owner) {
    if (Entry* entry = findSince(pid, time))
        entry->owner = owner;
}

void ProcessBook::exited(int64_t time, uint32_t pid, uint32_t thread, int64_t code) {
    const auto found = entries_.find(pid);
    if (found == entries_.end())
        return;
    Entry& entry = found->second;
    if (time < entry.knownAt)
        return;
    --entry.threads;
    // At the end of a process all its threads bear its code, but one that ended before, with 0, may be told of last.
    if (code != 0 || entry.lastCode == unknownCode)
        entry.lastCode = code;
    entry.lastExit = time;
    const bool isMain = thread == pid;
    const bool mayBeLast = entry.threads == 0 || (isMain && !entry.isExact);
    if (mayBeLast && (entry.isExact || facts_.hasEnded(pid, entry.startTicks))) {
        end(found, time, entry.lastCode);
        return;
    }
    entry.threads = std::max(entry.threads, 1U); // one lives
    if (isMain)
        noteLeaderless(pid, entry);
}

void ProcessBook::doubt(bool isLossy) {
    isLossy_ = isLossy;
    if (isLossy)
        for (auto& [pid, entry] : entries_)
            entry.isExact = false;
}

void ProcessBook::followBootClock(int64_t offset) {
    hasSlept_ = offset - bootOffset_ > KernelClock::tick();
    bootOffset_ = offset;
}

void ProcessBook::noteLeaderless(uint32_t pid, Entry& entry) {
    if (!entry.isLeaderless)
        leaderless_.push_back(pid);
    entry.isLeaderless = true;
}

/// The threads that a look found: some may have come or gone during it, which is told as well.
void ProcessBook::noteThreads(uint32_t pid, Entry& entry, const TableEntry& known) {
    entry.threads = std::max(known.threads, 1U);
    entry.isExact = false;
    if (!known.isLeaderless)
        return;
    noteLeaderless(pid, entry);
    entry.lastExit = std::max(entry.lastExit, known.knownAt);
}

void ProcessBook::end(Entries::iterator place, int64_t time, int64_t code) {
    Entry& entry = place->second;
    const uint32_t pid = place->first;
    if (entry.isOfKernel) {
        entries_.erase(place);
        return;
    }
    if (entry.lacksName || code == unknownCode)
        fillFromEpitaph(pid, entry, code);
    if (!entry.announced)
        announce(pid, entry);
    finish(entry.announced, std::max(time, entry.since), code);
    entries_.erase(place);
}

void ProcessBook::finish(const TracedPointer& process, int64_t time, int64_t code) {
    process->state.store(code);
    events_.push_back({false, time, process});
}

void ProcessBook::fillFromEpitaph(uint32_t pid, Entry& entry, int64_t& code) {
    std::string executable;
    uid_t owner = entry.owner;
    uint32_t exitCode = 0;
    if (!facts_.epitaph(pid, entry.startTicks, executable, owner, exitCode))
        return;
    if (entry.lacksName && !entry.announced)
        entry.executable = executable;
    if ((entry.lacksName || entry.owner == TracedProcess::unknownOwner) && !entry.announced)
        entry.owner = owner;
    if (code == unknownCode)
        code = exitCode;
}

void ProcessBook::tick(int64_t now) {
    announcePending(now);
    if (now - lastLeaderlessCheck_ >= leaderlessInterval)
        checkLeaderless(now);
}

void ProcessBook::announcePending(int64_t now) {
    while (!forks_.empty() && forks_.front().since + forkPatience <= now) {
        const auto [pid, since] = forks_.front();
        forks_.pop_front();
        const auto found = entries_.find(pid);
        if (found == entries_.end() || found->second.since != since || found->second.announced ||
            found->second.isOfKernel)
            continue;
        Entry& entry = found->second;
        if (entry.lacksName &&
            facts_.executable(pid, entry.since, entry.executable)) // its parent's was gone, its own is there
            entry.lacksName = false;
        announce(pid, entry);
    }
}

/// Ends those whose last thread ended without being recognised as the last.
void ProcessBook::checkLeaderless(int64_t now) {
    lastLeaderlessCheck_ = now;
    std::erase_if(leaderless_, [&](uint32_t pid) {
        const auto found = entries_.find(pid);
        if (found == entries_.end() || !found->second.isLeaderless)
            return true;
        if (!facts_.hasEnded(pid, found->second.startTicks))
            return false;
        end(found, found->second.lastExit, found->second.lastCode);
        return true;
    });
}

void ProcessBook::compare(const std::vector<TableEntry>& table, int64_t readAt) {
    std::unordered_map<uint32_t, const TableEntry*> present;
    for (const TableEntry& known : table)
        present[known.pid] = &known;
    for (auto place = entries_.begin(); place != entries_.end();) {
        const auto current = place++;
        const auto found = present.find(current->first);
        const uint64_t ticks = current->second.startTicks;
        const bool isSame = found != present.end() && (ticks == 0 || isSameStart(found->second->startTicks, ticks));
        if (isSame)
            mend(current->first, current->second, *found->second, readAt);
        else if (current->second.since < readAt && current->second.knownAt < readAt)
            end(current, readAt, unknownCode);
    }
    for (const TableEntry& known : table)
        if (!entries_.contains(known.pid) && !facts_.hasEnded(known.pid, known.startTicks))
            enter(known, nullptr, true);
}

/// What may have changed unseen of a process that has been there all the time.
void ProcessBook::mend(uint32_t pid, Entry& entry, const TableEntry& known, int64_t readAt) {
    if (known.knownAt < entry.knownAt)
        return;
    entry.owner = known.owner;
    // Two views of one file may differ in the directories in front of it.
    const bool hasExecuted = !known.executable.empty() && nameOf(known.executable) != nameOf(entry.executable);
    if (hasExecuted && !known.isKernelThread && entry.since < readAt)
        executed(readAt, pid, known.executable);
    noteThreads(pid, entry, known);
}

void ProcessBook::takeEvents(std::vector<BookEvent>& events) {
    events.insert(events.end(), std::make_move_iterator(events_.begin()), std::make_move_iterator(events_.end()));
    events_.clear();
}

void ProcessBook::forEach(const std::function<void(const TracedPointer&)>& visit) const {
    for (const auto& [pid, entry] : entries_)
        if (entry.announced)
            visit(entry.announced);
}

} // namespace Velmor
