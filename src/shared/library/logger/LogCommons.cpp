#include "shared/library/logger/LogCommons.h"

#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/ParamStream.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>

namespace Velmor {

namespace {
struct NamedNumber {
    int32_t number;
    std::string_view name;
};

constexpr std::array<std::string_view, 5> severities{"NOTICE", "WARNING", "ERROR", "CRITICAL", "FATAL"};

constexpr std::array<NamedNumber, 8> modules{{
    {LogModule::core, "Core"},
    {LogModule::configuration, "Configuration"},
    {LogModule::logger, "Logger"},
    {LogModule::protocol, "Protocol"},
    {LogModule::time, "Time"},
    {LogModule::ipc, "IPC"},
    {LogModule::runtally, "Runtally"},
    {LogModule::agent, "Agent"},
}};

constexpr std::array<NamedNumber, 2> programs{{
    {LogProgram::core, "Core"},
    {LogProgram::runtally, "Runtally"},
}};

constexpr std::string_view unknownName = "<<Unknown>>";
constexpr size_t severityColumns = 8;

template <size_t Size>
std::string_view nameOf(const std::array<NamedNumber, Size>& table, int32_t number) {
    const auto row = std::find_if(table.begin(), table.end(), [&](const auto& r) { return r.number == number; });
    return row == table.end() ? unknownName : row->name;
}

template <size_t Size>
int32_t numberOf(const std::array<NamedNumber, Size>& table, std::string_view name, int32_t otherwise) {
    const std::string wanted = toLowerCopy(name);
    const auto row =
        std::find_if(table.begin(), table.end(), [&](const auto& r) { return toLowerCopy(r.name) == wanted; });
    return row == table.end() ? otherwise : row->number;
}

std::string twoDigits(int32_t number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

void tellRejected(const std::string& name, std::string_view modulesWanted, const FindingSink& sink) {
    std::vector<std::string> wanted;
    split(modulesWanted, ',', wanted, std::numeric_limits<int32_t>::max());
    sink.warning(1, "no program of the family reads a catalogue of this name",
                 hintOr(name, {wanted.begin(), wanted.end()}, "remove it"));
}

std::string messageKey(int32_t module, int32_t number) {
    return std::to_string(module) + "." + std::to_string(number);
}
} // namespace

std::string_view LogCommons::severityName(int32_t severity) {
    return severity >= Severity::notice && severity <= Severity::fatal ? severities[static_cast<size_t>(severity)]
                                                                       : std::string_view();
}

int32_t LogCommons::severityFromName(std::string_view name) {
    if (name == "NONE" || name == "NOTHING")
        return Severity::nothing;
    const auto found = std::find(severities.begin(), severities.end(), name);
    return found == severities.end() ? Severity::unknown : static_cast<int32_t>(found - severities.begin());
}

std::string_view LogCommons::moduleName(int32_t module) {
    return nameOf(modules, module);
}

int32_t LogCommons::moduleFromName(std::string_view name) {
    if (toLowerCopy(name) == "log")
        return LogModule::logger;
    return numberOf(modules, name, LogModule::unknown);
}

std::string_view LogCommons::programName(int32_t program) {
    return nameOf(programs, program);
}

int32_t LogCommons::programFromName(std::string_view name) {
    return numberOf(programs, name, LogProgram::unknown);
}

std::string LogCommons::formatLine(const LogMessage& message, bool found) {
    std::string line =
        message.isLog ? std::string(severityName(message.severity)) : "debug-" + std::to_string(message.level);
    line.resize(std::max(line.size(), severityColumns), ' ');
    line += ' ';
    try {
        line += message.time.toString(false, false);
        line += ' ';
    } catch (const TimeException&) {
        line += "INVALID TIME STAMP  ";
    }
    line += "(" + std::to_string(message.program) + "." + twoDigits(message.module);
    if (!message.isLog)
        return line + ")    " + message.text;
    line += "." + twoDigits(message.messageId) + ") ";
    if (found)
        return line + message.text;
    line += "(Message not found.)";
    if (message.text.empty())
        return line;
    line += " Parameters: ";
    bool atLetter = true; // of a parameter's type, which isn't shown
    for (const char c : message.text) {
        if (c == ParamStream::separator || c == '\x1b') {
            line += "  ";
            atLetter = true;
        } else if (atLetter) {
            atLetter = false;
        } else {
            line += c;
        }
    }
    return line;
}

LoadResult LogCommons::loadMessages(std::string_view directory, std::string_view modulesWanted, Findings* findings) {
    LoadResult result;
    try {
        std::string folder(directory);
        FileUtils::normalisePath(folder);
        FileUtils::addSeparator(folder);
        folder += "LogMessages\\";
        for (const DirectoryEntry& entry : FileOps::scanDirectory(folder, "*.mess")) {
            if (!entry.isFile)
                continue;
            std::string name = entry.name;
            FileUtils::stripExtension(name);
            const bool wanted = modulesWanted == "all" || modulesWanted.find(name) != std::string_view::npos;
            const FindingSink sink = findings ? FindingSink(*findings, folder + entry.name) : FindingSink();
            if (moduleFromName(name) == LogModule::unknown || !wanted) {
                result.rejected.push_back(name);
                tellRejected(name, modulesWanted, sink);
            } else {
                loadFile(folder + entry.name, name, result, sink);
            }
        }
        result.ok = true;
    } catch (const FileException& failure) {
        result.error = failure.getDescription();
    } catch (const std::bad_alloc&) {
        result.error = "OUT OF MEMORY";
    } catch (...) {
        result.error.clear();
    }
    return result;
}

void LogCommons::loadFile(const std::string& path, const std::string& name, LoadResult& result,
                          const FindingSink& sink) {
    const int32_t module = moduleFromName(name);
    int32_t count = 0;
    FilePlain file(path);
    file.open(FileBase::ACCESS_READ);
    for (int32_t lineNumber = 1; !file.eof(); ++lineNumber) {
        std::string line;
        file.readLine(line);
        if (line.empty() || line.starts_with("//"))
            continue;
        std::string number = line.substr(0, line.find(':'));
        std::string text = number.size() < line.size() ? line.substr(number.size() + 1) : std::string();
        trimBlanks(number);
        trimBlanks(text);
        if (sink)
            tellMessage(number, text, module, lineNumber, sink);
        messages_.try_emplace(messageKey(module, toNumber(number)), std::move(text));
        ++count;
    }
    file.close();
    result.loaded.push_back(name);
    result.counts.push_back(count);
}

void LogCommons::tellMessage(const std::string& number, const std::string& text, int32_t module, int32_t line,
                             const FindingSink& sink) {
    if (number.empty() && text.empty())
        return;
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
        sink.warning(line, "the line has no number of a message before its \":\"",
                     number.starts_with('#') ? "begin comments with //" : "write NUMBER: TEXT");
        return;
    }
    if (text.empty())
        sink.warning(line, "message " + number + " has no wording", "write it behind the \":\"");
    if (const auto [first, isNew] = lines_[module].try_emplace(toNumber(number), line); !isNew)
        sink.warning(line,
                     "message " + number + " has a wording in line " + std::to_string(first->second) + ", which counts",
                     "remove one of them");
    for (size_t i = text.find('%'); i != std::string::npos; i = text.find('%', i + 2))
        if (i + 1 == text.size() || std::string_view("sifdp%").find(text[i + 1]) == std::string_view::npos) {
            sink.warning(line, "\"" + text.substr(i, 2) + "\" stands for nothing",
                         "write %s, %i, or %% for a percent sign");
            return;
        }
}

bool LogCommons::findMessage(int32_t module, int32_t number, std::string& text) const {
    const auto found = messages_.find(messageKey(module, number));
    if (found == messages_.end())
        return false;
    text = found->second;
    return true;
}

} // namespace Velmor
