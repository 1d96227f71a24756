#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace Velmor {

/// Records that their file can't take at the moment, in the order in which they came: up to 16 MiB, beyond which the
/// oldest make room. Its owner guards it.
class WaitingRecords {
public:
    static constexpr size_t mostBytes = size_t{16} << 20U;

    void add(std::string_view record);
    /// Gives records to `write`, the oldest first, until it answers false or none is left. True if none is left.
    bool drain(const std::function<bool(const std::string&)>& write);
    /// Forgets what has happened, once it has been told.
    void restart();

    bool isEmpty() const { return records_.empty(); }
    size_t count() const { return records_.size(); }
    /// Since the last `restart`: records that had to wait, and those that had to make room and are lost.
    uint64_t waited() const { return waited_; }
    uint64_t dropped() const { return dropped_; }

private:
    std::deque<std::string> records_;
    size_t bytes_ = 0;
    uint64_t waited_ = 0;
    uint64_t dropped_ = 0;
};

} // namespace Velmor
