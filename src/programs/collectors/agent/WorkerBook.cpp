#include "programs/collectors/agent/WorkerBook.h"

#include <algorithm>

namespace Velmor {

WorkerBook::Entry& WorkerBook::find(const std::string& name) {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.name == name; });
    return found != entries_.end() ? *found : entries_.emplace_back(Entry{name});
}

WorkerBook::Entry& WorkerBook::take(const ThreadRecord& worker) {
    Entry& entry = find(worker.name);
    entry.state = worker.state;
    entry.lastOk = worker.lastOk.getSeconds();
    return entry;
}

void WorkerBook::begin(const std::list<ThreadRecord>& workers) {
    const TimedMonopolyHold hold(lock_);
    for (Entry& entry : entries_)
        entry.isOn = false;
    for (const ThreadRecord& worker : workers)
        take(worker).isOn = true;
}

void WorkerBook::note(const ThreadRecord& worker) {
    const TimedMonopolyHold hold(lock_);
    take(worker);
}

void WorkerBook::restarted(const std::string& name) {
    const TimedMonopolyHold hold(lock_);
    ++find(name).restarts;
}

void WorkerBook::killed(const std::string& name) {
    const TimedMonopolyHold hold(lock_);
    ++find(name).kills;
}

std::vector<WorkerBook::Entry> WorkerBook::entries() {
    const TimedMonopolyHold hold(lock_);
    return entries_;
}

} // namespace Velmor
