#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Velmor {

/// The operating system's performance counters of processes, in the raw form of `PerformanceLayout.h`. Any thread may
/// ask.
class PerformanceData {
public:
    virtual ~PerformanceData() = default;

    /// The names of all counters: pairs of a decimal title index and a name, each ended by a zero byte, and an empty
    /// text at the end. `last` is the highest title index. False with `error`, and then both are as they were.
    virtual bool counterNames(uint32_t& last, std::string& names, uint32_t& error) = 0;

    /// Takes a sample of the object of processes into a caller's buffer of `size` bytes, and sets `size` to what it
    /// took. False with `error`; 234 means that the buffer is too small, however much it lacks, and a larger one that
    /// is offered at once gets the same moment.
    virtual bool sample(char* buffer, size_t& size, uint32_t& error) = 0;
};

} // namespace Velmor
