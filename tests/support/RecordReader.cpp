#include "support/RecordReader.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace Velmor {

namespace {
std::vector<std::string> fieldsOf(const std::string& line, const std::string& separator) {
    std::vector<std::string> fields;
    for (size_t begin = 0;;) {
        const size_t end = line.find(separator, begin);
        fields.push_back(line.substr(begin, end - begin));
        if (end == std::string::npos)
            return fields;
        begin = end + separator.size();
    }
}
} // namespace

bool RecordLines::has(const std::string& field) const {
    return std::find(fields.begin(), fields.end(), field) != fields.end();
}

std::vector<RecordLines> parseLines(const std::string& text, bool mayBeTorn) {
    std::vector<RecordLines> records;
    std::istringstream lines(text);
    std::string measure;
    for (std::string identity; std::getline(lines, identity);) {
        const bool isTorn = !std::getline(lines, measure) || lines.eof();
        if (isTorn && mayBeTorn)
            break;
        records.push_back({fieldsOf(identity, ":0:"), fieldsOf(measure, ":")});
        if (isTorn || records.back().fields.size() != 11 || !identity.starts_with("1:") || measure[1] != ':')
            throw std::runtime_error("damaged record: " + identity);
    }
    return records;
}

std::vector<UsageLine> parseRecords(const std::string& text, bool mayBeTorn) {
    std::vector<UsageLine> records;
    for (const RecordLines& lines : parseLines(text, mayBeTorn)) {
        const auto& fields = lines.fields;
        if (!fields[0].ends_with(":31"))
            throw std::runtime_error("another kind of record: " + fields[0]);
        records.push_back({lines.start(), fields[5], fields[6], fields[7], fields[9], fields[10],
                           lines.measures[0] == "1", std::stoi(lines.measures.at(1))});
    }
    return records;
}

} // namespace Velmor
