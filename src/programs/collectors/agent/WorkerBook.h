#pragma once

#include "programs/collectors/agent/ThreadRecord.h"
#include "shared/library/common/system/Monopoly.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace Velmor {

/// How the workers have fared since the program's start, by name: their records are made anew at each configuration.
/// The supervisor writes, any thread reads.
class WorkerBook {
public:
    struct Entry {
        std::string name;
        bool isOn = false; // in the configuration in force
        ThreadState state = ThreadState::healthy;
        int32_t lastOk = 0; // seconds since 1970, when it last gave a sign of life
        uint32_t restarts = 0;
        uint32_t kills = 0; // ends by force
    };

    /// The workers of a configuration have been made; those of before that it hasn't got are off.
    void begin(const std::list<ThreadRecord>& workers);
    void note(const ThreadRecord& worker);
    void restarted(const std::string& name);
    void killed(const std::string& name);
    std::vector<Entry> entries();

private:
    Entry& find(const std::string& name);
    Entry& take(const ThreadRecord& worker);

    Monopoly lock_; // guards the entries
    std::vector<Entry> entries_;
};

} // namespace Velmor
