#pragma once

#include "platform/Clock.h"
#include "platform/PerformanceData.h"
#include "support/SampleBuilder.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace Velmor {

/// Performance counters as the test writes them down. Its times are the scripted clock's: 1000 ticks a second.
class ScriptedPerformanceData : public PerformanceData {
public:
    explicit ScriptedPerformanceData(Clock& clock) : clock_(clock) {}

    bool counterNames(uint32_t& last, std::string& names, uint32_t& error) override;
    bool sample(char* buffer, size_t& size, uint32_t& error) override;

    /// The raw value of a process's counter; a process is in the sample when one of its counters has been set.
    int64_t& at(uint32_t pid, uint32_t title) { return values[pid][title]; }

    std::map<uint32_t, std::map<uint32_t, int64_t>> values; // by process id and title index
    std::vector<PaperCounter> counters{{PerfTitle::processId},
                                       {PerfTitle::elapsedTime, PerfType::elapsedTime, 8},
                                       {PerfTitle::processorTime, PerfType::timerOf100ns, 8},
                                       {PerfTitle::privateBytes, PerfType::largeRawCount, 8},
                                       {PerfTitle::ioDataBytes, PerfType::bulkCount, 8}};
    std::map<uint32_t, std::string> names{{PerfTitle::processId, "ID Process"},
                                          {PerfTitle::elapsedTime, "Elapsed Time"},
                                          {PerfTitle::processorTime, "% Processor Time"},
                                          {PerfTitle::privateBytes, "Private Bytes"},
                                          {PerfTitle::ioDataBytes, "IO Data Bytes/sec"}};
    std::deque<std::string> blocks; // given before those made of the values
    bool canSample = true;
    size_t samples = 0;        // that were given
    std::vector<size_t> asked; // sizes of the buffers that were offered

private:
    std::string present() const;

    Clock& clock_;
};

} // namespace Velmor
