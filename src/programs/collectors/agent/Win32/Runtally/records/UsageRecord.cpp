#include "programs/collectors/agent/Win32/Runtally/records/UsageRecord.h"

#include "platform/Errors.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "process/RuntallyMessages.h"
#include "programs/collectors/agent/DataDelivery.h"
#include "programs/collectors/agent/ProgramState.h"
#include "programs/collectors/agent/Win32/Runtally/Runtally.h"
#include "programs/collectors/agent/Win32/Runtally/RuntallyState.h"
#include "rules/PrimeTime.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace Velmor {

namespace {
constexpr int32_t usageRecord = 31;
constexpr int32_t leastDuration = 1; // what a negative one shows as
constexpr const char* usageDataType = "process";

const Logger& logger() {
    return runtallyState().logger;
}

bool isWanted(const Process& process, int32_t duration) {
    RuleFacts facts(RuleKey::datatype, "runtally");
    facts.setText(RuleKey::exe, process.getExecutable());
    facts.setText(RuleKey::app, process.getApplication());
    facts.setNumber(RuleKey::duration, duration);
    setUserFacts(facts, process.getUser());
    return isIncluded("logProcessData", "Process", facts);
}

std::string identityLine(Process& process) {
    std::string line = RecordText::head(process.getStart().getSeconds(), usageRecord);
    RecordText::addPlainField(line, RecordText::executableName(process));
    RecordText::addPlainField(line, process.getApplication());
    RecordText::addPlainField(line, RecordText::executableDirectory(process));
    RecordText::addField(line, getClassText(process.getStart()));
    RecordText::addField(line, process.getAccount());
    RecordText::addField(line, RecordText::exitCode(process.getExitCode()));
    return line;
}
} // namespace

std::string RecordText::opening(int32_t start, int32_t kind) {
    return "1:" + std::to_string(start) + ":" + std::to_string(kind);
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
    line.append(":0:").append(value);
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
    return code == stillActive ? "none" : std::to_string(code);
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

void Runtally::logProcessData(const ProcessPointer& process) {
    logger().debug(4, "logProcessData: Writing \"%s\" (%i) to file...", process->getApplication(), process->pid());
    int32_t duration = (process->getEnd() - process->getStart()).getSeconds();
    if (!isWanted(*process, duration))
        return;
    std::string record = identityLine(*process) + "\n";
    if (duration < 0) {
        logger().warning(RuntallyMessage::negativeDuration, process->getApplication(), process->pid());
        duration = leastDuration;
    }
    record += process->isLogged() ? "0:" : "1:";
    record += std::to_string(duration);
    if (writeToDataFile(usageDataType, record))
        process->markLogged(); // one that is lost must not take the count of its process with it
}

} // namespace Velmor
