#include "programs/runtallyctl/UsageFile.h"

#include "records/RecordFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace Velmor {

namespace {
using namespace RecordFormat;
using Fields = std::array<std::string_view, usageFieldCount>;

/// No number of a record is negative.
bool readNumber(std::string_view text, int64_t& number) {
    const char* end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    return failure == std::errc() && rest == end && number >= 0;
}

/// Takes the text up to the first head of a field off the front of `rest`; false if there is none.
bool takeField(std::string_view& rest, std::string_view& field) {
    const size_t end = rest.find(separator);
    if (end == std::string_view::npos)
        return false;
    field = rest.substr(0, end);
    rest.remove_prefix(end + separator.size());
    return true;
}

/// Only the account is written as it stands, so what looks like further fields in the middle belongs to it.
bool splitIdentity(std::string_view line, Fields& fields) {
    for (size_t i = head; i < account; ++i)
        if (!takeField(line, fields[i]))
            return false;
    const size_t end = line.rfind(separator);
    if (end == std::string_view::npos)
        return false;
    fields[account] = line.substr(0, end);
    fields[exitCode] = line.substr(end + separator.size());
    return true;
}

bool readIdentity(std::string_view line, UsageEntry& entry) {
    Fields fields;
    int64_t code = 0;
    if (!splitIdentity(line, fields) || !(fields[exitCode] == running || readNumber(fields[exitCode], code)))
        return false;
    const std::string_view start = fields[head].substr(2);
    if (!readNumber(start.substr(0, start.find(':')), entry.start))
        return false;
    entry.computer = fields[computer];
    entry.executable = std::string(fields[executableDirectory]).append(fields[executableName]);
    entry.application = fields[application];
    entry.timeClass = fields[timeClass];
    entry.user = fields[account].substr(0, fields[account].find('|'));
    entry.exitCode = fields[exitCode];
    return true;
}

bool readMeasure(std::string_view line, UsageEntry& entry) {
    if (!line.starts_with(first) && !line.starts_with(further))
        return false;
    entry.isFirst = line.starts_with(first);
    return readNumber(line.substr(2), entry.duration);
}

/// The kind of the record that a line begins; empty if it begins none.
std::string_view kindOf(std::string_view line) {
    const auto start = line.substr(0, line.find(separator));
    if (start.size() == line.size() || !start.starts_with(opening) || std::count(start.begin(), start.end(), ':') != 2)
        return {};
    return start.substr(start.rfind(':') + 1);
}

/// Reads lines and counts them. The last line counts only with its line feed: without it the writer was cut off.
class LineReader {
public:
    explicit LineReader(std::istream& input) : input_(input) {}

    bool next(std::string& line) {
        if (!std::getline(input_, line))
            return false;
        ++number_;
        isCutOff_ = input_.eof();
        return !isCutOff_;
    }

    size_t number() const { return number_; }
    bool isCutOff() const { return isCutOff_; }

private:
    std::istream& input_;
    size_t number_ = 0;
    bool isCutOff_ = false;
};

class UsageFileReader {
public:
    explicit UsageFileReader(std::istream& input) : lines_(input) {}

    UsageFile read() {
        bool hasLine = lines_.next(line_);
        while (hasLine)
            hasLine = kindOf(line_).empty() ? skipForeignLines() : readRecord();
        if (lines_.isCutOff() && !cutOffTold_)
            complain(lines_.number(), "the record is cut off");
        return std::move(file_);
    }

private:
    // Each begins at `line_` and leaves it at the first line that it didn't use; false at the end of the file.

    bool skipForeignLines() {
        complain(lines_.number(), "no record begins here");
        while (lines_.next(line_))
            if (!kindOf(line_).empty())
                return true;
        return false;
    }

    bool readRecord() {
        const std::string identity = std::move(line_);
        const size_t begin = lines_.number();
        if (!lines_.next(line_)) {
            complain(begin, "the record is cut off");
            cutOffTold_ = true;
            return false;
        }
        if (kindOf(identity) != std::to_string(usage)) {
            ++file_.others;
            return lines_.next(line_);
        }
        UsageEntry entry;
        const bool hasMeasure = readMeasure(line_, entry);
        if (hasMeasure && readIdentity(identity, entry))
            file_.entries.push_back(std::move(entry));
        else
            complain(begin, "the record is damaged");
        return hasMeasure || kindOf(line_).empty() ? lines_.next(line_) : true;
    }

    void complain(size_t number, std::string_view text) {
        file_.mistakes.push_back("line " + std::to_string(number) + ": " + std::string(text));
    }

    LineReader lines_;
    std::string line_;
    bool cutOffTold_ = false;
    UsageFile file_;
};
} // namespace

UsageFile readUsageFile(std::istream& input) {
    return UsageFileReader(input).read();
}

} // namespace Velmor
