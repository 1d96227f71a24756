#include "programs/runtallyctl/UsageFile.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace Velmor {

namespace {
constexpr std::string_view fieldHead = ":0:";
constexpr std::string_view usageKind = "31";
constexpr size_t fieldCount = 11; // the head, and ten fields

bool readNumber(std::string_view text, int64_t& number) {
    const char* end = text.data() + text.size();
    return !text.empty() && std::from_chars(text.data(), end, number).ptr == end;
}

std::vector<std::string_view> fieldsOf(std::string_view line) {
    std::vector<std::string_view> fields;
    while (true) {
        const size_t end = line.find(fieldHead);
        fields.push_back(line.substr(0, end));
        if (end == std::string_view::npos)
            return fields;
        line.remove_prefix(end + fieldHead.size());
    }
}

/// "\\domain\user|attributes" without the attributes.
std::string userOf(std::string_view account) {
    return std::string(account.substr(0, account.find('|')));
}

/// Only the account is written as it stands, so what looks like further fields belongs to it.
std::string_view accountOf(const std::vector<std::string_view>& fields) {
    const char* begin = fields[9].data();
    const char* end = fields.back().data() - fieldHead.size();
    return {begin, static_cast<size_t>(end - begin)};
}

bool readMeasure(std::string_view line, UsageEntry& entry) {
    if (!line.starts_with("1:") && !line.starts_with("0:"))
        return false;
    entry.isFirst = line.front() == '1';
    return readNumber(line.substr(2), entry.duration);
}

bool readIdentity(std::string_view line, UsageEntry& entry) {
    const auto fields = fieldsOf(line);
    if (fields.size() < fieldCount)
        return false;
    std::string_view head = fields[0];
    head.remove_prefix(2);
    if (!readNumber(head.substr(0, head.find(':')), entry.start))
        return false;
    entry.computer = fields[2];
    entry.executable = std::string(fields[7]) + std::string(fields[5]);
    entry.application = fields[6];
    entry.timeClass = fields[8];
    entry.user = userOf(accountOf(fields));
    entry.exitCode = fields.back();
    return true;
}

/// The kind of the record that a line begins; empty if it begins none.
std::string_view kindOf(std::string_view line) {
    const auto head = line.substr(0, line.find(fieldHead));
    if (!head.starts_with("1:") || std::count(head.begin(), head.end(), ':') != 2)
        return {};
    return head.substr(head.rfind(':') + 1);
}
} // namespace

UsageFile readUsageFile(std::istream& input) {
    UsageFile file;
    std::string identity;
    std::string measure;
    for (size_t line = 1; std::getline(input, identity); line += 2) {
        const bool hasMeasure = static_cast<bool>(std::getline(input, measure));
        const bool isTorn = !hasMeasure || input.eof(); // the last line of a whole record has its end
        const std::string_view kind = kindOf(identity);
        UsageEntry entry;
        if (isTorn)
            file.mistakes.push_back("line " + std::to_string(line) + ": the record is cut off");
        else if (!kind.empty() && kind != usageKind)
            ++file.others;
        else if (kind.empty() || !readIdentity(identity, entry) || !readMeasure(measure, entry))
            file.mistakes.push_back("line " + std::to_string(line) + ": this is no record");
        else
            file.entries.push_back(std::move(entry));
    }
    return file;
}

} // namespace Velmor
