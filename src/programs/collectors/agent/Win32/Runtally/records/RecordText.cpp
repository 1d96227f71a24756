#include "programs/collectors/agent/Win32/Runtally/records/RecordText.h"

#include "platform/Errors.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/state/RuntallyState.h"
#include "records/RecordFormat.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace Velmor {

namespace {
const Logger& logger() {
    return runtallyState().logger;
}
} // namespace

std::string RecordText::opening(int32_t start, int32_t kind) {
    return std::string(RecordFormat::opening) + std::to_string(start) + ":" + std::to_string(kind);
}

std::string RecordText::head(int32_t start, int32_t kind) {
    const StaticInfo& machine = programState().staticInfo;
    std::string line = opening(start, kind);
    addField(line, machine.domain);
    addField(line, Process::getLocalComputerName());
    addField(line, machine.architecture);
    addField(line, machine.osName);
    return line;
}

void RecordText::addField(std::string& line, std::string_view value) {
    line.append(RecordFormat::separator).append(value);
}

void RecordText::addPlainField(std::string& line, std::string value) {
    // A control byte, as a mapping or a description may hold one, would break the record's lines.
    std::replace_if(
        value.begin(), value.end(), [](unsigned char c) { return c == ':' || c < ' '; }, '_');
    addField(line, value);
}

std::string RecordText::executableName(const Process& process) {
    return FileUtils::getBaseName(process.getExecutable());
}

std::string RecordText::executableDirectory(const Process& process) {
    return FileUtils::getDirectory(process.getExecutable());
}

std::string RecordText::exitCode(uint32_t code) {
    return code == stillActive ? std::string(RecordFormat::running) : std::to_string(code);
}

void setUserFacts(RuleFacts& facts, const std::string& user) {
    if (user.find('|') == std::string::npos) {
        facts.setText(RuleKey::user, user);
        return;
    }
    std::vector<std::string> parts;
    split(user, '|', parts, std::numeric_limits<int32_t>::max());
    std::map<std::string, std::string> attributes;
    for (std::string& part : parts) {
        const bool hasKey = part.find('=') != std::string::npos;
        const std::string key = hasKey ? firstField(part, '=') : std::string();
        attributes[key] = part;
    }
    facts.setAccount(RuleKey::user, attributes);
}

bool isIncluded(std::string_view who, std::string_view what, const RuleFacts& facts) {
    IncludeExclude& rules = runtallyState().includeExclude;
    const bool included = rules.isIncluded(facts);
    const int32_t line = rules.getMatchedLine();
    if (!included)
        logger().debug(4, "%s:    %s is excluded by include/exclude mappings, element in line %i", who, what, line);
    else if (line >= 0)
        logger().debug(4, "%s:    %s is included by include/exclude mappings, element in line %i", who, what, line);
    return included;
}

bool writeToDataFile(const char* dataType, const std::string& record) {
    const SmartPointer<LogFile> file = getLogFile(dataType);
    if (file.isNull()) {
        logger().critical(RuntallyMessage::noFile, dataType);
        return false;
    }
    return file->writeRecord(record);
}

std::string doubleToString(double value, int decimals) {
    try {
        std::array<char, 16> format{};
        std::snprintf(format.data(), format.size(), "%%0.%if", decimals);
        std::string text(static_cast<size_t>(std::snprintf(nullptr, 0, format.data(), value)), '\0');
        std::snprintf(text.data(), text.size() + 1, format.data(), value);
        if (decimals <= 0)
            return text;
        while (text.size() > 1 && text.back() == '0')
            text.pop_back();
        if (text.size() > 1 && text.back() == '.')
            text.pop_back();
        return text;
    } catch (...) {
        return "#ERR";
    }
}

} // namespace Velmor
