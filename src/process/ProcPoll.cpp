#include "process/ProcPoll.h"

#include "platform/Platform.h"

namespace Velmor {

ProcPoll::~ProcPoll() {
    logger_.debug(1, "ProcPoll object ended.");
}

void ProcPoll::setLogger(const SmartPointer<LoggerUnit>& unit) {
    logger_.set(unit);
    logger_.debug(1, "ProcPoll object has access to a logger!");
}

bool ProcPoll::scan(std::vector<ProcessPointer>& list, int32_t startSeconds) {
    logger_.debug(4, "ProcPoll.scan: Scanning processes...");
    list.clear();
    logger_.debug(5, "   ProcPoll.scan: Enumerating processes...");
    if (!platform().processes->enumerate(ids_))
        return false;
    logger_.debug(5, "   ProcPoll.scan: Enumerated %i process(es). Extracting information...", ids_.size());
    list.reserve(ids_.size());
    for (const uint32_t id : ids_) {
        if (id == 0)
            continue;
        logger_.debug(5, "      ProcPoll.scan: Creating object for process %i...", id);
        list.emplace_back(new Process(id, startSeconds, Process::Mode::running, true));
    }
    logger_.debug(4, "   ProcPoll.scan: Got %i process(es).", list.size());
    return true;
}

bool ProcPoll::poll(int32_t startSeconds) {
    logger_.debug(4, "ProcPoll.poll: Polling processes...");
    std::vector<ProcessPointer> list;
    if (!scan(list, startSeconds))
        return false;
    currentPoll_.insert(list.begin(), list.end());
    logger_.debug(4, "   ProcPoll.poll: Done.");
    return true;
}

void ProcPoll::getPollData(std::vector<ProcessPointer>& list, const TimeSpan& span) {
    logger_.debug(4, "ProcPoll.getPollData: Getting changes between the two last polls...");
    list.clear();
    const size_t ended = collectEnded(list, span);
    logger_.debug(5, "   ProcPoll.getPollData: %i process(es) ended.", ended);
    const size_t started = collectStarted(list, span);
    logger_.debug(5, "   ProcPoll.getPollData: %i process(es) started.", started);
    if (!list.empty())
        previousPoll_ = currentPoll_;
    currentPoll_.clear();
    logger_.debug(4, "   ProcPoll.getPollData: There where %i changed process(es).", list.size());
}

size_t ProcPoll::collectEnded(std::vector<ProcessPointer>& list, const TimeSpan& span) const {
    size_t count = 0;
    for (const ProcessPointer& process : previousPoll_) {
        if (currentPoll_.contains(process))
            continue;
        reportEnded(process, span, list);
        ++count;
    }
    return count;
}

size_t ProcPoll::collectStarted(std::vector<ProcessPointer>& list, const TimeSpan& span) const {
    size_t count = 0;
    for (const ProcessPointer& process : currentPoll_) {
        if (previousPoll_.contains(process))
            continue;
        process->setState(ProcessState::started);
        process->setStart(DateTime() - span);
        list.push_back(process);
        ++count;
    }
    return count;
}

void ProcPoll::takeEnded(std::vector<ProcessPointer>& list, const TimeSpan& span) {
    for (auto place = previousPoll_.begin(); place != previousPoll_.end();) {
        const ProcessPointer process = *place;
        if (!process->isOpen() || process->isRunning()) {
            ++place;
            continue;
        }
        place = previousPoll_.erase(place);
        reportEnded(process, span, list);
    }
}

void ProcPoll::reportEnded(const ProcessPointer& process, const TimeSpan& span, std::vector<ProcessPointer>& list) {
    process->setState(ProcessState::ended);
    process->setEnd(DateTime() - span);
    list.push_back(process);
}

void ProcPoll::forget() {
    previousPoll_.clear();
    currentPoll_.clear();
}

void ProcPoll::clear() {
    logger_.debug(1, "ProcPoll: Clearing data...");
    forget();
    logger_.debug(1, "   ProcPoll: Data cleared.");
    logger_.release();
}

} // namespace Velmor
