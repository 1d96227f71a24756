#pragma once

#include "platform/linux/base/FileDescriptor.h"
#include "platform/linux/base/FileIdentity.h"
#include "platform/linux/trace/ProcessConnector.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
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

    struct Executed {
        int64_t time = 0;
        std::string path; // empty if nobody told it
        std::optional<FileIdentity> file;
    };

    /// What a process executed last between the two times. What is older is forgotten.
    Executed takeExecuted(uint32_t pid, int64_t after, int64_t time);

    /// The notices of before `until`, in the order of their times; only with tasks.
    void takeNotices(int64_t until, std::vector<ProcessNotice>& notices);

    uint64_t lost() const { return lost_; }

private:
    struct Ring;
    struct Execution {
        Executed program;
        bool isMapped;
    };
    struct Mapping {
        int64_t time;
        uint32_t pid;
        std::string path; // empty for the beginning of an execution
        FileIdentity file;
    };

    SidebandRings();
    static std::unique_ptr<Ring> openRing(int processor, Records records);
    void drain(Ring& ring);
    void take(const char* record, size_t size);
    void sortIn();
    void forgetHalfTold();
    void forgetUnasked(int64_t now);
    void followProcessors();

    std::map<int, std::unique_ptr<Ring>> rings_; // by processor
    std::string online_;                         // the processors that they are of, as the kernel lists them
    int64_t tidied_ = 0;                         // when processors and names were looked through last
    Records records_ = Records::names;
    std::vector<Mapping> fresh_; // of this fetch, not in order yet
    std::unordered_map<uint32_t, std::deque<Execution>> executions_;
    std::vector<ProcessNotice> notices_;
    std::string wrapped_; // a record that lies across a ring's end
    uint64_t lost_ = 0;
};

} // namespace Velmor
