#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string_view>

namespace Velmor {

/// What the program could not record or hand over since its start, by cause. Any thread may use it.
class LossBook {
public:
    enum class Cause : uint8_t {
        events,    // process events that the system could not keep
        names,     // names of executed programs that it could not keep
        records,   // records that waited for their file until the memory for them was full, or the program ended
        takenAway, // records in a data file that others deleted or moved before its end
        unopened,  // looks at processes that no handle was left for
        exitCodes, // exit codes that could not be learnt
        messages,  // numbered messages that the core service did not take
    };
    static constexpr size_t causes = 7;

    struct Entry {
        uint64_t count = 0;
        int32_t first = 0; // seconds since 1970; 0: never
        int32_t last = 0;
    };

    /// The word by which status and metrics call a cause.
    static std::string_view nameOf(Cause cause);
    /// What was lost, in words that follow a number.
    static std::string_view describe(Cause cause);

    /// Enters losses of this moment.
    void add(Cause cause, uint64_t count = 1);
    Entry entry(Cause cause) const;

private:
    struct Words {
        std::atomic<uint64_t> count{0};
        std::atomic<int32_t> first{0};
        std::atomic<int32_t> last{0};
    };
    std::array<Words, causes> words_; // by cause
};

LossBook& lossBook();

} // namespace Velmor
