#pragma once

#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/base/WakeEvent.h"
#include "platform/linux/processes/ExitRecords.h"
#include "platform/linux/trace/LinuxKernelTrace.h"
#include "platform/linux/trace/ProcessBook.h"
#include "platform/linux/trace/ProcessConnector.h"
#include "platform/linux/trace/SidebandRings.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
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
    /// Ends the reading. The session stays, without further events.
    void stop();

    struct Item {
        bool isStart;
        uint64_t timeStamp; // 100-nanosecond units since 1601
        TracedPointer process;
    };

    /// Waits until there is an event, the session has ended, or the time is up. True if `front` may be asked.
    bool await(int milliseconds);
    bool hasEnded() const { return ended_; }
    /// The oldest event, for the one thread that reads; it stays the oldest until `pop`.
    bool front(Item& item);
    void pop();

    uint64_t lost() const { return lost_; }

private:
    // What the book asks.
    bool executable(uint32_t pid, std::string& path) override;
    bool describe(uint32_t pid, TableEntry& entry) override;
    bool hasEnded(uint32_t pid, uint64_t startTicks) override;
    bool epitaph(uint32_t pid, std::string& executable, uid_t& owner, uint32_t& exitCode) override;

    bool openSources(std::string& shortcomings);
    void enterTable();
    void endMissing(const std::vector<TableEntry>& table);
    bool readTable(std::vector<TableEntry>& table);
    void checkOwner(const ProcessNotice& executed);
    void run();
    bool pauseUntil(int milliseconds, bool forNews);
    void round(bool isLast);
    void fetch();
    void apply(const ProcessNotice& notice);
    void noteLosses();
    void mend(int64_t now);
    uint64_t lossesOfSources() const;
    uint64_t signsOfLoss() const;
    void publish();
    void noteFile(uint32_t pid, const std::string& path);

    LinuxProcesses& processes_;
    LinuxKernelTrace::Sources sources_;
    std::unique_ptr<SidebandRings> rings_;
    std::unique_ptr<ProcessConnector> connector_;
    std::unique_ptr<ExitRecords> exitRecords_;
    std::unordered_map<uint32_t, ExitRecord> epitaphs_; // of this round, by process id
    std::unordered_map<uint32_t, ExitRecord> olderEpitaphs_;
    std::unordered_map<FileIdentity, std::string, FileIdentityHash> files_; // executables seen, for the exit records
    std::unique_ptr<ProcessBook> book_;
    std::vector<ProcessNotice> notices_;
    std::vector<BookEvent> bookEvents_;
    bool isTableEntered_ = false;
    int64_t compareDue_ = 0; // when the process table is to be looked at; 0: not at all
    uint64_t lossesSeen_ = 0;

    std::mutex mutex_; // guards the next
    std::deque<Item> queue_;
    WakeEvent news_; // of the queue
    WakeEvent stop_;
    std::atomic<uint64_t> lost_{0};
    std::atomic<bool> ended_{false};
    std::thread reader_;
};

} // namespace Velmor
