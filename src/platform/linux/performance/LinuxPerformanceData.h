#pragma once

#include "platform/PerformanceData.h"
#include "platform/linux/performance/ProcessFigures.h"

#include <mutex>
#include <string>

namespace Velmor {

/// Performance counters of processes out of /proc, written down in the published layout. All times are of one steady
/// clock that counts through a suspended machine, dated by the wall clock at the beginning; so a step of the wall clock
/// makes no rate wrong.
class LinuxPerformanceData : public PerformanceData {
public:
    LinuxPerformanceData();

    bool counterNames(uint32_t& last, std::string& names, uint32_t& error) override;
    bool sample(char* buffer, size_t& size, uint32_t& error) override;

private:
    int64_t steadyTime() const;
    bool hasFreshBlock() const;
    bool takeBlock();
    void appendHeader();
    void appendObject();
    void appendInstance(const ProcessFigures& figures);

    const int64_t bootDate_; // when the steady clock was 0, in 100 ns since 1601
    std::mutex mutex_;       // guards the rest
    ProcessFigureReader reader_;
    std::string block_;     // the last sample, kept while a caller makes room for it; empty if none waits
    int64_t blockTime_ = 0; // 100 ns of the steady clock
};

} // namespace Velmor
