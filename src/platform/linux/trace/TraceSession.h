#pragma once

#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/trace/Epitaphs.h"
#include "platform/linux/trace/LinuxKernelTrace.h"
#include "platform/linux/trace/ProcessBook.h"
#include "platform/linux/trace/ProcessConnector.h"
#include "platform/linux/trace/SidebandRings.h"
#include "platform/linux/trace/TraceQueue.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace Velmor {

/// A running session: its sources, the books that are kept from them, and the thread that fetches by the clock.
class TraceSession : public ProcessFacts {
public:
    TraceSession(LinuxProcesses& processes, LinuxKernelTrace::Sources sources);
    TraceSession(const TraceSession&) = delete;
    TraceSession& operator=(const TraceSession&) = delete;
    ~TraceSession() override;

    /// Opens the sources and notes what runs already. False with the reasons in `shortcomings` if there are none.
    bool start(std::string& shortcomings);
    /// The first half of that.
    bool openSources(std::string& shortcomings);
    /// Ends the reading. The session stays, without further events.
    void stop();

    /// What is told, for the one thread that reads it.
    TraceQueue& queue() { return queue_; }
    bool hasEnded() const { return ended_; }

    /// Events that could not be kept, as the numbers of those that came tell.
    uint64_t lost() const { return lost_; }
    /// Names that could not be kept while another source told of the events.
    uint64_t namesLost() const { return namesLost_; }

private:
    // What the book asks.
    bool executable(uint32_t pid, int64_t since, std::string& path) override;
    bool describe(uint32_t pid, TableEntry& entry) override;
    bool hasEnded(uint32_t pid, uint64_t startTicks) override;
    bool epitaph(uint32_t pid, uint64_t startTicks, std::string& executable, uid_t& owner, uint32_t& exitCode) override;

    void enterTable();
    void endMissing(const std::vector<TableEntry>& table);
    bool readTable(std::vector<TableEntry>& table);
    void checkOwner(const ProcessNotice& executed);
    void takeExecution(const ProcessNotice& notice);
    void takeUntoldExecution(const ProcessNotice& exited);
    void run();
    bool pauseUntil(int milliseconds, bool forNews);
    bool release();
    void giveSourcesUp();
    void round(bool isLast);
    void fetch();
    void apply(const ProcessNotice& notice);
    void noteLosses();
    void mend(int64_t now);
    void countLosses();
    uint64_t signsOfLoss() const;
    void publish();
    void noteExecutions(const std::vector<ProcessNotice>& notices);
    bool hasExecutedSince(uint32_t pid, int64_t time) const;

    LinuxProcesses& processes_;
    LinuxKernelTrace::Sources sources_;
    std::unique_ptr<SidebandRings> rings_;
    std::unique_ptr<ProcessConnector> connector_;
    Epitaphs epitaphs_;
    std::unique_ptr<ProcessBook> book_;
    std::vector<ProcessNotice> notices_;               // of this round
    std::vector<ProcessNotice> ahead_;                 // of the next
    std::unordered_map<uint32_t, int64_t> executions_; // by process id, the last one in either
    std::vector<BookEvent> bookEvents_;
    bool isTableEntered_ = false;
    int64_t compareDue_ = 0; // when the process table is to be looked at; 0: not at all
    uint64_t lossesSeen_ = 0;
    uint64_t lossesDoubted_ = 0;

    TraceQueue queue_;
    WakeEvent stop_;
    std::atomic<uint64_t> lost_{0};
    std::atomic<uint64_t> namesLost_{0};
    std::atomic<bool> ended_{false};
    std::thread reader_;
};

} // namespace Velmor
