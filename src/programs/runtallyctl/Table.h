#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace Velmor {

enum class Align { left, right };

/// Text in columns that are as wide as their widest cell.
class Table {
public:
    explicit Table(std::vector<Align> columns) : columns_(std::move(columns)), widths_(columns_.size()) {}

    /// One cell for each column, in UTF-8.
    void add(std::vector<std::string> row);
    void print(std::ostream& out) const;

private:
    std::vector<Align> columns_;
    std::vector<size_t> widths_;
    std::vector<std::vector<std::string>> rows_;
};

/// A moment in seconds since 1970, by the local clock.
std::string timeText(int64_t seconds);

} // namespace Velmor
