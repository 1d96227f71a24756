#include "programs/runtallyctl/Table.h"

#include "shared/library/common/time/DateTime.h"

#include <algorithm>
#include <ostream>

namespace Velmor {

namespace {
constexpr size_t columnGap = 2;

/// Columns that a text in UTF-8 takes: its continuation bytes take none.
size_t widthOf(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xC0U) != 0x80U; }));
}
} // namespace

void Table::add(std::vector<std::string> row) {
    for (size_t i = 0; i < row.size(); ++i)
        widths_[i] = std::max(widths_[i], widthOf(row[i]));
    rows_.push_back(std::move(row));
}

void Table::print(std::ostream& out) const {
    for (const auto& row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths_[i] - widthOf(row[i]), ' ');
            line += columns_[i] == Align::left ? row[i] + padding : padding + row[i];
            line.append(columnGap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

std::string timeText(int64_t seconds) {
    return DateTime(static_cast<int32_t>(seconds)).toString(false, false);
}

} // namespace Velmor
