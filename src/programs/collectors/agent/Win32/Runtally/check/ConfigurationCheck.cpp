#include "programs/collectors/agent/Win32/Runtally/check/ConfigurationCheck.h"

#include "platform/FileSystem.h"
#include "platform/KernelTrace.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Registry.h"
#include "process/naming/ApplicationMappings.h"
#include "process/performance/OscQuery.h"
#include "programs/collectors/agent/Win32/Runtally/check/KeyCheck.h"
#include "programs/collectors/agent/Win32/Runtally/check/MessageNumbers.h"
#include "programs/collectors/agent/Win32/Runtally/workers/PerformanceMonitor.h"
#include "rules/IncludeExclude.h"
#include "rules/ModPollFilterChecker.h"
#include "rules/PrimeTime.h"
#include "rules/ProcessRulesChecker.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/BasicFile.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/system/SystemInfo.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>

namespace Velmor {

namespace {
struct KnownValue {
    std::string_view name;
    uint32_t type;
};
constexpr std::array knownValues{
    KnownValue{"ConfigurationDir", RegistryType::text},  KnownValue{"InstallDir", RegistryType::text},
    KnownValue{"StartupLogDir", RegistryType::text},     KnownValue{"StartupDebugLevel", RegistryType::number},
    KnownValue{"RuntallyDebugLog", RegistryType::text},  KnownValue{"LogFileRotationScheme", RegistryType::text},
    KnownValue{"MailslotAccess", RegistryType::text},    KnownValue{"JOB_Runtally", RegistryType::text},
    KnownValue{"RuntallyLogOpened", RegistryType::text}, KnownValue{"RuntallyLogCounter", RegistryType::text},
};

constexpr const char* pollingKey = "runtally.logging.process-data.polling";
constexpr const char* eventsKey = "runtally.logging.process-data.events";
constexpr const char* nativeKey = "runtally.logging.process-data.events.native";
constexpr const char* modulesKey = "runtally.logging.module-data";
constexpr const char* performanceKey = "runtally.logging.performance-monitor";

std::string rawText(const std::string& name) {
    uint32_t type = 0;
    uint32_t error = 0;
    std::string data;
    return platform().registry->read(name, type, data, error) && type == RegistryType::text ? data : std::string();
}

/// Cuts "cause; remedy." into its two parts.
void addCause(const FindingSink& sink, const std::string& cause, int32_t line) {
    const size_t end = cause.find("; ");
    std::string remedy = end == std::string::npos ? "correct it" : cause.substr(end + 2);
    while (remedy.ends_with('.') || remedy.ends_with(' '))
        remedy.pop_back();
    sink.error(line, cause.substr(0, end), remedy);
}

void checkEncoding(const std::string& name, const FindingSink& sink, bool passesMark,
                   std::initializer_list<std::string_view> commentMarks) {
    BasicFile file;
    std::string text;
    if (file.open(name, BasicFile::MODE_READ) && file.read(text, std::numeric_limits<int64_t>::max()))
        tellEncoding(text, sink, passesMark, commentMarks);
}

/// Looks at a value whose type is right.
void checkValue(const RegistryEntry& entry, const FindingSink& sink) {
    const std::string text = rawText(entry.name);
    int32_t level = 0;
    if (entry.name == "MailslotAccess" && text != "everyone")
        sink.warning(entry.line, "MailslotAccess doesn't know \"" + text + "\"",
                     hintOr(text, {"everyone"}, "write \"everyone\", or remove the value"));
    if (entry.name == "StartupDebugLevel" && getResourceNumber(entry.name, level) == ResourceResult::success &&
        (level < 0 || level > 5))
        sink.warning(entry.line, "StartupDebugLevel " + std::to_string(level) + " is no level", "write 0 to 5");
    if (entry.name == "LogFileRotationScheme") {
        const std::vector<std::string_view> known{"none", "init", "time", "size"};
        std::string rest = text;
        while (!rest.empty())
            if (const std::string word = firstField(rest, ',');
                std::find(known.begin(), known.end(), word) == known.end())
                sink.warning(entry.line, "LogFileRotationScheme doesn't know the word \"" + word + "\"",
                             hintOr(word, known, "write none, init, time or size"));
    }
    std::string directory;
    if (entry.name == "ConfigurationDir" && getResourceValue(entry.name, directory) == ResourceResult::success &&
        !FileOps::exists(directory))
        sink.error(entry.line, "the directory \"" + directory + "\" isn't there", "correct ConfigurationDir");
    else if ((entry.name == "InstallDir" || entry.name == "StartupLogDir") &&
             getResourceValue(entry.name, directory) == ResourceResult::success && !FileOps::exists(directory))
        sink.warning(entry.line, "the directory \"" + directory + "\" isn't there",
                     "make it, or correct " + entry.name);
}

void checkEntry(const RegistryEntry& entry, const std::set<std::string>& referred, const FindingSink& sink) {
    std::vector<std::string_view> names(knownValues.size());
    std::transform(knownValues.begin(), knownValues.end(), names.begin(), [](const KnownValue& v) { return v.name; });
    const auto known = std::find_if(knownValues.begin(), knownValues.end(),
                                    [&](const KnownValue& value) { return value.name == entry.name; });
    if (entry.name.empty())
        sink.error(entry.line, entry.problem, "correct it; a start fails by it");
    else if (known == knownValues.end() && referred.count(entry.name) == 0)
        sink.warning(entry.line, "nothing reads the value \"" + entry.name + "\"",
                     hintOr(entry.name, names, "remove it; the documentation lists the values"));
    else if (known != knownValues.end() && known->type != entry.type)
        sink.warning(entry.line,
                     "the value of " + entry.name + " is no " +
                         (known->type == RegistryType::text ? "text" : "number") + ", so it counts as absent",
                     known->type == RegistryType::text ? "put it in quotes" : "write it without quotes");
    else
        checkValue(entry, sink);
}
} // namespace

ConfigurationCheck::ConfigurationCheck(Kept kept) : kept_(kept), conf_(SmartPointer<LoggerCentre>()) {}

bool ConfigurationCheck::checkResources() {
    std::string cause;
    const bool isReadable = platform().registry->isReadable(cause);
    std::string file;
    const std::vector<RegistryEntry> entries = platform().registry->survey(file);
    const FindingSink sink = in(file);
    std::set<std::string> referred;
    for (const RegistryEntry& entry : entries) {
        const std::string text = rawText(entry.name);
        for (size_t begin = text.find("${"); begin != std::string::npos; begin = text.find("${", begin + 2)) {
            const std::string name = text.substr(begin + 2, text.find('}', begin) - begin - 2);
            referred.insert(name);
            if (std::none_of(entries.begin(), entries.end(), [&](const RegistryEntry& e) { return e.name == name; }))
                sink.warning(entry.line, entry.name + " refers to \"" + name + "\", which has no value", "give it one");
        }
    }
    for (const RegistryEntry& entry : entries)
        checkEntry(entry, referred, sink);
    if (!isReadable && !findings_.hasErrors())
        addCause(sink, cause, 1);
    std::string directory;
    if (isReadable && getResourceValue("ConfigurationDir", directory) != ResourceResult::success)
        sink.error(1, "the value ConfigurationDir is missing", "set it to the directory of the configuration files");
    return !findings_.hasErrors();
}

void ConfigurationCheck::checkConfiguration(const std::string& file, const std::string& directory) {
    sink_ = in(file);
    checkEncoding(file, sink_, true, {"#", "//"});
    conf_.buildDOMTree(file, sink_);
    if (!conf_.getTree())
        return;
    isWhole_ = !findings_.hasErrors();
    checkKeys(conf_, sink_);
    checkDirectories();
    checkSources();
    const ConfigurationFiles files(conf_);
    checkRules(files.rules);
    checkPrimeTime(directory);
    checkMappings(files.mappings);
    checkModules(files.filter);
    checkPerformance(files);
    checkCatalogue();
}

bool ConfigurationCheck::isOn(const char* key, bool otherwise) const {
    bool value = otherwise;
    conf_.getBool(key, value);
    return value;
}

void ConfigurationCheck::checkSources() {
    const bool polling = isOn(pollingKey, kept_.polling);
    const bool events = isOn(eventsKey, kept_.events);
    const bool native = events && isOn(nativeKey, kept_.nativeEvents);
    if (events && !native)
        sink_.warning(lineOfKey(conf_, eventsKey), "events without native do nothing", "set events.native to true");
    if (!events && isOn(nativeKey, false))
        sink_.warning(lineOfKey(conf_, nativeKey), "native without events does nothing", "set events to true");
    if (isWhole_ && !polling && !native)
        sink_.error(lineOfKey(conf_, pollingKey), "no source of processes is on, so nothing is recorded",
                    std::string("set ") + pollingKey + ", or events and events.native, to true");
}

bool ConfigurationCheck::isThere(const std::string& file, const char* key, bool isNeeded) {
    if (FileOps::exists(file)) {
        checkEncoding(file, in(file), false, {"#"});
        return true;
    }
    const std::string what = "the file \"" + shownPath(file) + "\" isn't there";
    const std::string advice = std::string("make it, or correct the key ") + key;
    if (isNeeded)
        sink_.error(lineOfKey(conf_, key), what, advice);
    else if (conf_.find(key))
        sink_.warning(lineOfKey(conf_, key), what, advice);
    return false;
}

void ConfigurationCheck::checkRules(const std::string& file) {
    if (file.empty()) {
        if (isWhole_)
            sink_.error(lineOfKey(conf_, ConfigurationKey::rules), "no rule file is named, so no record is wanted",
                        std::string("set ") + ConfigurationKey::rules);
        return;
    }
    IncludeExclude rules;
    std::string error;
    if (!isThere(file, ConfigurationKey::rules, true) || !rules.load(file, error, in(file)))
        return;
    const bool canRecord = rules.canInclude("runtally") || (isOn(modulesKey, false) && rules.canInclude("module")) ||
                           (isOn(performanceKey, false) && rules.canInclude("process"));
    if (!canRecord)
        in(file).error(1, "no rule can include a record that is made, so nothing is recorded",
                       "write include datatype=* to want all");
}

void ConfigurationCheck::checkPrimeTime(const std::string& directory) {
    constexpr const char* key = "runtally.primetime-file";
    std::string file = directory + "primetime";
    conf_.getFileName(key, file);
    PrimeTime calendar;
    if (isThere(file, key, false) && !calendar.readFile(file, in(file)))
        in(file).error(1, "the prime time file can't be read", "make it readable, or remove it");
}

void ConfigurationCheck::checkMappings(const std::string& file) {
    if (file.empty() || !FileOps::exists(file))
        return;
    checkEncoding(file, in(file), false, {"#"});
    try {
        ApplicationMappingsReader(in(file)).readFile(file);
    } catch (const FileException&) {
        in(file).warning(1, "the application mappings can't be read", "make them readable");
    }
}

void ConfigurationCheck::checkModules(const std::string& file) {
    TimeSpan interval;
    if (!isOn(modulesKey, false) || !intervalOf(conf_, std::string(modulesKey) + ".interval", interval) ||
        !isThere(file, ConfigurationKey::filter, false))
        return;
    ModPollFilterChecker filter;
    if (!filter.readFile(file, in(file)))
        in(file).error(1, "the module filter is empty or can't be read", "correct it, or remove it");
}

void ConfigurationCheck::checkPerformance(const ConfigurationFiles& files) {
    if (!isOn(performanceKey, false))
        return;
    if (isThere(files.counters, ConfigurationKey::counters, true))
        checkCounters(files.counters);
    if (!isThere(files.performanceRules, ConfigurationKey::performanceRules, true))
        return;
    ProcessRulesChecker rules;
    const FindingSink sink = in(files.performanceRules);
    if (!rules.readFile(files.performanceRules, sink))
        sink.error(1, "the file is empty or can't be read", "correct it");
    else if (rules.blocks().empty())
        sink.warning(1, "the file lists no names, so no process is watched", "write + host=* and names below it");
}

void ConfigurationCheck::checkCounters(const std::string& file) {
    const FindingSink sink = in(file);
    std::vector<CounterEntry> entries;
    try {
        if (!readCounterEntries(file, entries, sink) || entries.empty()) {
            sink.error(1, "the file has no counter", "write Elapsed Time|abs and others");
            return;
        }
    } catch (const FileException&) {
        sink.error(1, "the file can't be read", "make it readable");
        return;
    }
    std::unique_ptr<OscQuery> query = OscOpenQuery(1);
    if (!query || query->names.empty())
        return;
    std::vector<std::string_view> names;
    for (const auto& name : query->names)
        names.emplace_back(name.name);
    const auto isGiven = [&](std::string_view name) {
        return std::any_of(entries.begin(), entries.end(),
                           [&](const CounterEntry& entry) { return toLowerCopy(entry.name) == toLowerCopy(name); });
    };
    for (const CounterEntry& entry : entries)
        if (OscFindCounter(query.get(), entry.name) == 0)
            sink.warning(entry.line,
                         "the system has no counter \"" + entry.name + "\", and those behind it get no values",
                         hintOr(entry.name, names, "remove it"));
    if (!isGiven("Elapsed Time"))
        sink.warning(1, "the counter \"Elapsed Time\" is missing, without which all that depends on time is 0",
                     "write Elapsed Time|abs");
    OscCloseQuery(query);
}

void ConfigurationCheck::checkCatalogue() {
    std::string directory;
    if (conf_.getDirName("Velmor.directories.conf", directory) != ConfReader::FOUND) {
        if (isWhole_)
            sink_.warning(lineOfKey(conf_, "Velmor.directories.conf"),
                          "without Velmor.directories.conf messages have no wording, and applications no mappings",
                          "set it");
        return;
    }
    if (!FileOps::exists(directory + "LogMessages")) {
        sink_.warning(lineOfKey(conf_, "Velmor.directories.conf"),
                      "\"" + shownPath(directory) + "\" has no directory LogMessages, so messages have no wording",
                      "correct the key, or copy the directory there");
        return;
    }
    LogCommons messages;
    const LoadResult result = messages.loadMessages(directory, "runtally,configuration,agent", &findings_);
    if (!result.ok)
        sink_.warning(lineOfKey(conf_, "Velmor.directories.conf"), "the catalogues can't be read",
                      "make them readable");
    for (const std::string& name : result.loaded) {
        const int32_t module = LogCommons::moduleFromName(name);
        const auto known = messageNumbers(module);
        std::string file = directory;
        file.append("LogMessages/").append(name).append(".mess");
        checkEncoding(file, in(file), false, {"//"});
        for (const auto& [number, line] : messages.linesOf(module))
            if (std::find(known.begin(), known.end(), number) == known.end())
                in(file).warning(line, "no message has the number " + std::to_string(number), "remove the line");
    }
}

void ConfigurationCheck::checkDirectories() {
    std::string directory;
    constexpr const char* temp = "Velmor.directories.temp";
    constexpr const char* log = "Velmor.directories.log";
    if (conf_.getDirName(temp, directory) == ConfReader::FOUND)
        checkDirectory(directory, temp, false);
    else if (isWhole_)
        sink_.error(lineOfKey(conf_, temp), std::string("the key ") + temp + " is missing, or has no value",
                    "add it as a DirName");
    if (conf_.getDirName(log, directory) == ConfReader::FOUND)
        checkDirectory(directory, log, false);
    if (isWhole_)
        checkDirectory(dataDirectoryOf(conf_), "runtally.working-dir", true);
}

/// Goes up to the first directory that is there; the rest would be made in it.
void ConfigurationCheck::checkDirectory(const std::string& directory, const char* key, bool isNeeded) {
    std::string there = shownPath(directory);
    FileUtils::stripSeparators(there);
    while (!there.empty() && !FileOps::exists(there)) {
        there = FileUtils::getDirectory(there);
        if (there.size() < 2)
            break;
        FileUtils::stripSeparators(there);
    }
    FileInfo info;
    FileOps::getInfo(there, info);
    const bool isDirectory = (info.attributes & InfoAttribute::directory) != 0;
    if (isDirectory && platform().fileSystem->isWritable(there))
        return;
    std::string what = "the directory \"" + shownPath(directory) + "\" can't be written, since \"";
    what.append(there).append(isDirectory ? "\" may not be written" : "\" is no directory");
    const std::string advice = isDirectory ? "run the check as the collector's user, or give that user the right"
                                           : std::string("correct ") + key;
    if (isNeeded)
        sink_.error(lineOfKey(conf_, key), what, advice);
    else
        sink_.warning(lineOfKey(conf_, key), what, advice);
}

void ConfigurationCheck::checkRights() {
    const bool polling = isOn(pollingKey, kept_.polling);
    const bool native = isOn(eventsKey, kept_.events) && isOn(nativeKey, kept_.nativeEvents);
    constexpr const char* advice = "give the collector the right; the packaged unit does";
    std::string lacking;
    if (native && !platform().kernelTrace->canStart(lacking))
        sink_.error(lineOfKey(conf_, nativeKey), "process events can't be followed: " + lacking, advice);
    else if (!lacking.empty())
        sink_.warning(lineOfKey(conf_, nativeKey), "process events aren't complete: " + lacking, advice);
    if (const std::string missing = platform().machine->missingRights(); (polling || native) && !missing.empty())
        sink_.warning(lineOfKey(conf_, polling ? pollingKey : eventsKey), missing, advice);
}

} // namespace Velmor
