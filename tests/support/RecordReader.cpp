#include "support/RecordReader.h"

#include <sstream>
#include <stdexcept>

namespace Velmor {

namespace {
std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    for (size_t begin = 0;;) {
        const size_t end = line.find(":0:", begin);
        fields.push_back(line.substr(begin, end - begin));
        if (end == std::string::npos)
            return fields;
        begin = end + 3;
    }
}
} // namespace

std::vector<UsageLine> parseRecords(const std::string& text) {
    std::vector<UsageLine> records;
    std::istringstream lines(text);
    std::string identity;
    std::string measure;
    while (std::getline(lines, identity)) {
        if (!std::getline(lines, measure) || lines.eof())
            throw std::runtime_error("torn record: " + identity);
        const auto fields = fieldsOf(identity);
        if (fields.size() != 11 || fields[0].substr(fields[0].size() - 3) != ":31" || measure[1] != ':')
            throw std::runtime_error("damaged record: " + identity);
        UsageLine record;
        record.start = std::stoi(fields[0].substr(2));
        record.executable = fields[5];
        record.application = fields[6];
        record.directory = fields[7];
        record.account = fields[9];
        record.exitCode = fields[10];
        record.isFirst = measure[0] == '1';
        record.duration = std::stoi(measure.substr(2));
        records.push_back(record);
    }
    return records;
}

} // namespace Velmor
