#include "programs/collectors/agent/Win32/Runtally/check/KeyCheck.h"

#include "programs/collectors/agent/Win32/Runtally/ConfigurationFiles.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/LogCommons.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace Velmor {

namespace {
constexpr std::string_view text = "String";
constexpr std::string_view truth = "Bool";
constexpr std::string_view number = "Integer";
constexpr std::string_view directory = "DirName";
constexpr std::string_view file = "FileName";
constexpr std::string_view span = "TimeSpan";
const std::vector<std::string_view> types{text, truth, number, directory, file, span};

constexpr std::array keys{
    KnownKey{"Velmor.directories.conf", directory},
    KnownKey{"Velmor.directories.log", directory},
    KnownKey{"Velmor.directories.temp", directory},
    KnownKey{"log.time", text},
    KnownKey{"log.rotation.scheme", text},
    KnownKey{"log.rotation.time", span},
    KnownKey{"log.rotation.size", number},
    KnownKey{"log.global.severity", text},
    KnownKey{"log.global.debug-level", number},
    KnownKey{"runtally.log.debug-level", number},
    KnownKey{"runtally.working-dir", directory},
    KnownKey{"runtally.metrics-file", file},
    KnownKey{"runtally.interval", span},
    KnownKey{"runtally.interval.performance-monitor", span},
    KnownKey{"runtally.include-exclude", file},
    KnownKey{"runtally.logging.process-data.polling", truth},
    KnownKey{"runtally.logging.process-data.polling.interval", span},
    KnownKey{"runtally.logging.process-data.events", truth},
    KnownKey{"runtally.logging.process-data.events.native", truth},
    KnownKey{"runtally.logging.process-data.log-to-file", truth},
    KnownKey{"runtally.logging.process-data.log-to-file.delete-after-days", number},
    KnownKey{"runtally.primetime-file", file},
    KnownKey{"runtally.logging.module-data", truth},
    KnownKey{"runtally.logging.module-data.interval", span},
    KnownKey{ConfigurationKey::filter, file},
    KnownKey{"runtally.logging.performance-monitor", truth},
    KnownKey{"runtally.logging.performance-monitor.interval", span},
    KnownKey{ConfigurationKey::counters, file},
    KnownKey{ConfigurationKey::performanceRules, file},
};

/// The words that a text may be, or may be put together from.
struct WordList {
    std::string_view key;
    std::vector<std::string_view> words;
};
const std::array wordLists{
    WordList{"log.time", {"local", "zulu"}},
    WordList{"log.rotation.scheme", {"none", "init", "time", "size"}},
    WordList{"log.global.severity", {"NOTICE", "WARNING", "ERROR", "CRITICAL", "FATAL", "NONE", "NOTHING"}},
};

std::string quoted(std::string_view word) {
    return "\"" + std::string(word) + "\"";
}

std::string_view typeOf(std::string_view key) {
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const KnownKey& known) { return known.key == key; });
    return found == keys.end() ? std::string_view() : found->type;
}

bool isSection(std::string_view key) {
    return std::any_of(keys.begin(), keys.end(), [&](const KnownKey& known) {
        return known.key.size() > key.size() && known.key.starts_with(key) && known.key[key.size()] == '.';
    });
}

/// The names that may stand directly below a section; with an empty text those of the top.
std::vector<std::string_view> namesBelow(std::string_view section) {
    std::vector<std::string_view> names;
    for (const KnownKey& known : keys) {
        std::string_view rest = known.key;
        if (!section.empty()) {
            if (!rest.starts_with(section) || rest.size() <= section.size() || rest[section.size()] != '.')
                continue;
            rest.remove_prefix(section.size() + 1);
        }
        names.push_back(rest.substr(0, rest.find('.')));
    }
    return names;
}

/// The keys that `${key}` in a value names.
std::vector<std::string> referencesIn(const std::string& value) {
    std::vector<std::string> list;
    for (size_t begin = value.find("${"); begin != std::string::npos; begin = value.find("${", begin + 2))
        list.push_back(value.substr(begin + 2, value.find('}', begin) - begin - 2));
    return list;
}

/// Whether all of a time span's text is read: only units, each once, with a number before it.
bool isWholeSpan(std::string_view value) {
    if (value.empty() || value == "P0")
        return true;
    value.remove_prefix(std::min<size_t>(value.starts_with("P-") ? 2 : 1, value.size()));
    std::string seen;
    while (!value.empty()) {
        const size_t digits = std::min(value.find_first_not_of("0123456789"), value.size());
        if (digits == 0 || digits == value.size())
            return false;
        const char unit = value[digits];
        if (std::string_view("DHMS").find(unit) == std::string_view::npos || seen.find(unit) != std::string::npos)
            return false;
        seen += unit;
        value.remove_prefix(digits + 1);
    }
    return !seen.empty();
}

bool isWholeNumber(std::string value) {
    if (value.starts_with('-'))
        value.erase(0, 1);
    constexpr size_t mostDigits = 9;
    return !value.empty() && value.size() <= mostDigits && value.find_first_not_of("0123456789") == std::string::npos;
}

class KeyCheck {
public:
    KeyCheck(const ConfReader& conf, const FindingSink& sink) : conf_(conf), sink_(sink) {}

    void run() {
        if (!conf_.getTree())
            return;
        forEach(*conf_.getTree(), "", [&](const DOMNode& node, const std::string& /*key*/) {
            for (const std::string& reference : referencesIn(node.getValue()))
                for (size_t end = reference.find('.'); true; end = reference.find('.', end + 1)) {
                    referred_.insert(reference.substr(0, end));
                    if (end == std::string::npos)
                        break;
                }
            return true;
        });
        forEach(*conf_.getTree(), "", [&](const DOMNode& node, const std::string& key) { return look(node, key); });
        checkRotation();
    }

private:
    using Use = std::function<bool(const DOMNode& node, const std::string& key)>;

    /// Goes through the entries, and into a block if `use` says so; of several of one name to the first only.
    void forEach(const DOMNode& parent, const std::string& prefix, const Use& use) {
        std::set<std::string> seen;
        for (const DOMNode* node = parent.getFirstChild(); node; node = node->getNextSibling())
            if (seen.insert(node->getName()).second && use(*node, prefix + node->getName()))
                forEach(*node, prefix + node->getName() + ".", use);
    }

    bool look(const DOMNode& node, const std::string& key) {
        const bool isKnown = !typeOf(key).empty();
        if (!isKnown && !isSection(key) && referred_.count(key) == 0) {
            tellUnknown(node, key);
            return false;
        }
        const std::string_view type = isKnown ? typeOf(key) : std::string_view(node.getType());
        if (isKnown && node.getType() != type)
            tellType(node, key, type);
        else if (!type.empty())
            judgeValue(node, key, type);
        return true;
    }

    void tellUnknown(const DOMNode& node, const std::string& key) {
        const size_t point = key.rfind('.');
        const std::string section = point == std::string::npos ? "" : key.substr(0, point);
        const auto isMeant = [&](const KnownKey& known) { return known.key.ends_with("." + node.getName()); };
        auto elsewhere = std::find_if(keys.begin(), keys.end(), [&](const KnownKey& known) {
            return isMeant(known) && known.type == node.getType();
        });
        if (elsewhere == keys.end())
            elsewhere = std::find_if(keys.begin(), keys.end(), isMeant);
        const std::string_view near = nearestWord(node.getName(), namesBelow(section));
        const std::string what = "nothing reads the key " + quoted(key);
        if (isSection(node.getName()))
            sink_.warning(node.getLine(), what, "write it beside the outermost blocks; one before it isn't closed");
        else if (elsewhere != keys.end())
            sink_.warning(node.getLine(), what, "did you mean " + std::string(elsewhere->key) + "?");
        else if (!near.empty())
            sink_.warning(node.getLine(), what, "did you mean " + std::string(near) + "?");
        else
            sink_.warning(node.getLine(), what, adviceForSection(node.getName()));
    }

    static std::string adviceForSection(const std::string& name) {
        for (const KnownKey& known : keys)
            if (const size_t found = known.key.find("." + name + "."); found != std::string_view::npos)
                return "did you mean " + std::string(known.key.substr(0, found + 1)) + name + "?";
        return "remove it; the documentation lists the keys";
    }

    void tellType(const DOMNode& node, const std::string& key, std::string_view type) {
        const std::string is = node.getType().empty() ? "without a type" : "of the type " + quoted(node.getType());
        sink_.warning(node.getLine(), "the key " + quoted(key) + " is " + is + ", so its default is in force",
                      "write (" + std::string(type) + ")");
    }

    void judgeValue(const DOMNode& node, const std::string& key, std::string_view type) {
        std::string value;
        switch (get(key, type, value)) {
        case ConfReader::FOUND:
            judgeFound(node, key, type, value);
            break;
        case ConfReader::BAD_BOOL:
            tell(node, key, "is neither true nor false", "write true or false, in lower case");
            break;
        case ConfReader::BAD_TEXT:
            if (type == span)
                tell(node, key, "is no time span", "write it as P1D2H3M4S, or a part of that, as P12H");
            else
                tell(node, key, "is no file name", "name one file, without * and ?");
            break;
        case ConfReader::BAD_REFERENCE:
            tell(node, key, "has a ${ without its }, or one that leads back to itself", "mend it");
            break;
        case ConfReader::NOT_FOUND:
        case ConfReader::NO_TYPE:
            tellReference(node, key);
            break;
        default:
            if (const auto near = nearestWord(node.getType(), types); near != node.getType())
                sink_.warning(node.getLine(), "nothing has the type " + quoted(node.getType()),
                              hintOr(node.getType(), types, "the documentation lists the types"));
        }
    }

    /// Asks as the reader of that type does; `value` gets the value as it stands in the file.
    int32_t get(const std::string& key, std::string_view type, std::string& value) const {
        value = conf_.find(key)->getValue();
        std::string resolved;
        bool isTrue = false;
        int32_t count = 0;
        TimeSpanParts parts;
        if (type == text)
            return conf_.getString(key, resolved, true, false);
        if (type == truth)
            return conf_.getBool(key, isTrue);
        if (type == number)
            return conf_.getInteger(key, count);
        if (type == directory)
            return conf_.getDirName(key, resolved);
        if (type == file)
            return conf_.getFileName(key, resolved);
        return type == span ? conf_.getTimeSpan(key, parts) : ConfReader::OTHER_TYPE;
    }

    void judgeFound(const DOMNode& node, const std::string& key, std::string_view type, const std::string& value) {
        if (value.find("${") != std::string::npos)
            return;
        if (type == span)
            judgeSpan(node, key, value);
        else if (type == number)
            judgeNumber(node, key, value);
        else if (type == text)
            judgeWords(node, key, value);
        else if ((type == file || type == directory) && value.find_first_not_of(" \t") == std::string::npos)
            tell(node, key, "is empty", "name one, or remove the key");
        else if ((type == file || type == directory) && value.find_first_of("/\\") != 0)
            tell(node, key, "is no whole path, and counts from wherever the collector is started",
                 "begin it with / or a ${key}");
    }

    void judgeSpan(const DOMNode& node, const std::string& key, const std::string& value) {
        TimeSpan interval;
        const bool isNone = !intervalOf(conf_, key, interval);
        if (!isWholeSpan(value))
            tell(node, key, "is only read in part", "write it as P1D2H3M4S, or a part of that, as P12H");
        else if (isNone)
            tell(node, key, "is no interval above zero and up to 24,855 days, so the key counts as absent",
                 "write one as P12H, or remove the key");
    }

    void judgeNumber(const DOMNode& node, const std::string& key, const std::string& value) {
        constexpr int32_t mostDebugging = 5;
        if (!isWholeNumber(value)) {
            tell(node, key, "is no whole number; " + std::to_string(toNumber(value)) + " is taken",
                 "write decimal digits only");
            return;
        }
        const int32_t count = toNumber(value);
        if (key.ends_with("debug-level") && (count < 0 || count > mostDebugging))
            tell(node, key, "is no level", "write 0 to 5");
        else if (count < 0 || (count == 0 && !key.ends_with("debug-level")))
            tell(node, key, "is too little", "write at least 1");
    }

    void judgeWords(const DOMNode& node, const std::string& key, const std::string& value) {
        const auto list =
            std::find_if(wordLists.begin(), wordLists.end(), [&](const WordList& l) { return l.key == key; });
        if (list == wordLists.end())
            return;
        const bool isScheme = key.ends_with("scheme");
        std::vector<std::string> words;
        split(isScheme ? toLowerCopy(value) : value, isScheme ? ',' : '\n', words, std::numeric_limits<int32_t>::max());
        if (words.empty())
            words.emplace_back();
        for (std::string& word : words) {
            if (!isScheme)
                trimBlanks(word);
            if (std::find(list->words.begin(), list->words.end(), word) != list->words.end())
                continue;
            std::string choice = "write one of";
            for (const std::string_view known : list->words)
                choice.append(" ").append(known);
            sink_.warning(node.getLine(), "the key " + quoted(key) + " doesn't know the word " + quoted(word),
                          hintOr(word, list->words, choice));
        }
    }

    /// Schemes without what they need.
    void checkRotation() {
        std::string scheme;
        if (conf_.getString("log.rotation.scheme", scheme, true, true) != ConfReader::FOUND)
            return;
        const int32_t line = lineOfKey(conf_, "log.rotation.scheme");
        int32_t size = 0;
        conf_.getInteger("log.rotation.size", size);
        if (scheme.find("size") != std::string::npos && size <= 0)
            sink_.warning(line, "the scheme \"size\" has no log.rotation.size, so every line begins a new log",
                          "set log.rotation.size in megabytes");
        TimeSpan period;
        if (scheme == "time" && !intervalOf(conf_, "log.rotation.time", period))
            sink_.warning(line, "the scheme \"time\" has no log.rotation.time, so no log is begun anew",
                          "set log.rotation.time, as P7D");
    }

    void tell(const DOMNode& node, const std::string& key, const std::string& what, std::string_view advice) {
        sink_.warning(node.getLine(), "the value " + quoted(node.getValue()) + " of " + quoted(key) + " " + what,
                      advice);
    }

    void tellReference(const DOMNode& node, const std::string& key) {
        std::vector<std::string> all;
        forEach(*conf_.getTree(), "", [&](const DOMNode& entry, const std::string& name) {
            if (!entry.getType().empty())
                all.push_back(name);
            return true;
        });
        for (const std::string& reference : referencesIn(node.getValue()))
            if (std::find(all.begin(), all.end(), reference) == all.end()) {
                tell(node, key, "refers to " + quoted(reference) + ", which has no value, so the key counts as absent",
                     hintOr(reference, {all.begin(), all.end()}, "give it one"));
                return;
            }
        tell(node, key, "refers to a key that refers to one without a value", "give it one");
    }

    const ConfReader& conf_;
    const FindingSink& sink_;
    std::set<std::string> referred_; // keys that values refer to, and the sections that hold them
};
} // namespace

std::span<const KnownKey> knownKeys() {
    return keys;
}

void checkKeys(const ConfReader& conf, const FindingSink& sink) {
    KeyCheck(conf, sink).run();
}

int32_t lineOfKey(const ConfReader& conf, std::string_view key) {
    while (!key.empty()) {
        if (const DOMNode* node = conf.find(key))
            return node->getLine();
        const size_t point = key.rfind('.');
        key = key.substr(0, point == std::string_view::npos ? 0 : point);
    }
    return 1;
}

} // namespace Velmor
