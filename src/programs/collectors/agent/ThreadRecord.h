#pragma once

#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/time/DateTime.h"
#include "shared/library/common/time/TimeSpan.h"
#include "shared/library/common/win32/ThreadInstance.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace Velmor {

/// Values of the word between supervisor and worker.
namespace Report {
constexpr int32_t nothing = 0;  // nothing asked yet
constexpr int32_t question = 1; // the supervisor asks: are you alive?
constexpr int32_t alive = 2;
constexpr int32_t fatal = 4;    // alive, but in a fatal condition
constexpr int32_t quitting = 5; // the worker has seen the quit flag
constexpr int32_t stop = 6;     // the worker must end its loop
} // namespace Report

/// The supervisor's verdict on a worker.
enum class ThreadState : int32_t { healthy = 0, silent = 1, down = 2 };

/// One worker thread: where its supervisor and it meet. The supervisor writes in it, the worker reads its name and
/// reads and writes `report`, and nothing else passes between them.
struct ThreadRecord {
    static constexpr uint16_t takesPart = 2; // flag of `reporting`: the worker answers through `report`

    ThreadRecord(std::string threadName, uint16_t reportingFlags)
        : name(std::move(threadName)), reporting(reportingFlags) {}
    ThreadRecord(const ThreadRecord& other)
        : name(other.name), thread(other.thread), reporting(other.reporting), report(other.report.load()),
          state(other.state), lastOk(other.lastOk) {}
    ThreadRecord& operator=(const ThreadRecord&) = delete;

    std::string name;
    SmartPointer<ThreadInstance> thread;
    uint16_t reporting;
    std::atomic<int32_t> report{Report::nothing};
    ThreadState state = ThreadState::healthy;
    DateTime lastOk; // when a pass last found the thread healthy
};

/// A worker's answer: an open question is answered with `alive`, or `fatal`; a set quit flag is noted in any case.
void reportStatus(std::atomic<int32_t>& report, bool fatal);

/// A worker's debug line about itself, at an interval of its own.
void logThreadStatus(const ThreadRecord& record, bool fatal = false);

/// How a worker's rounds follow each other.
struct WorkerPace {
    TimeSpan statusInterval; // between two lines about itself
    uint32_t pause;          // milliseconds behind a round
    bool waitsForOrder;      // the quit flag only keeps it from work; else it ends the loop
};

/// The loop of a worker: answers the supervisor, tells of itself, and does a round, until it is told to stop or `round`
/// answers false.
void runRounds(ThreadRecord& record, const WorkerPace& pace, const std::function<bool(const DateTime& now)>& round);

} // namespace Velmor
