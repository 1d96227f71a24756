#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/trace/ProcessConnector.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Velmor {

/// The kernel's side-band records of performance events, one ring for each processor: what processes execute, and, if
/// asked for, their forks and ends. Needs CAP_PERFMON where the system restricts performance events.
class SidebandRings {
public:
    enum class Records : uint8_t { names, namesAndTasks };

    /// Null with errno if the kernel refuses.
    static std::unique_ptr<SidebandRings> start(Records records);

    ~SidebandRings();
    SidebandRings(const SidebandRings&) = delete;
    SidebandRings& operator=(const SidebandRings&) = delete;

    /// Takes over what has been written until now.
    void fetch();

    /// What a process executed last at that time, or an empty text. What is older is forgotten.
    std::string takeExecuted(uint32_t pid, int64_t time);

    /// The notices of before `until`, in the order of their times; only with tasks.
    void takeNotices(int64_t until, std::vector<ProcessNotice>& notices);

    uint64_t lost() const { return lost_; }

private:
    struct Ring;
    struct Execution {
        int64_t time;
        std::string path; // empty until it is mapped
    };
    struct Mapping {
        int64_t time;
        uint32_t pid;
        std::string path; // empty for the beginning of an execution
    };

    SidebandRings();
    static std::unique_ptr<Ring> openRing(int processor, Records records);
    void drain(Ring& ring);
    void take(const char* record, size_t size);
    void sortIn();
    void forgetHalfTold();

    std::vector<std::unique_ptr<Ring>> rings_;
    Records records_ = Records::names;
    std::vector<Mapping> fresh_; // of this fetch, not in order yet
    std::unordered_map<uint32_t, std::deque<Execution>> executions_;
    std::vector<ProcessNotice> notices_;
    std::string wrapped_; // a record that lies across a ring's end
    uint64_t lost_ = 0;
};

} // namespace Velmor
