#include "rules/RuleCheck.h"

#include "rules/RuleFileReader.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <unordered_map>

namespace Velmor {

namespace {
constexpr int32_t secondsOfDay = 24 * 60 * 60;
constexpr int32_t everyDay = 0x7f;

// What the kinds of records tell beyond what all of them do.
constexpr std::array<std::string_view, 3> recordKinds{"runtally", "module", "process"};
constexpr unsigned usageRecords = 1;
constexpr unsigned moduleRecords = 2;
constexpr unsigned performanceRecords = 4;
constexpr unsigned allRecords = usageRecords | moduleRecords | performanceRecords;

bool isPattern(const std::string& text) {
    return text.find_first_of("*?") != std::string::npos;
}

/// The kinds of records for which a condition may hold.
unsigned kindsOf(const RuleCondition& condition) {
    switch (condition.key) {
    case RuleKey::datatype: {
        unsigned kinds = 0;
        for (size_t i = 0; i < recordKinds.size(); ++i)
            if (wildcardMatch(condition.text, recordKinds[i]))
                kinds |= 1U << i;
        return kinds;
    }
    case RuleKey::module:
        return moduleRecords;
    case RuleKey::cpu:
    case RuleKey::io:
    case RuleKey::memory:
        return performanceRecords;
    case RuleKey::group:
        return 0;
    default:
        return allRecords;
    }
}

/// Whether two conditions on the same thing exclude each other.
bool contradict(const RuleCondition& a, const RuleCondition& b) {
    switch (kindOf(a.key)) {
    case RuleKind::fact:
        if (isPattern(a.text))
            return !isPattern(b.text) && !wildcardMatch(a.text, b.text);
        return isPattern(b.text) ? !wildcardMatch(b.text, a.text) : a.text != b.text;
    case RuleKind::number:
        return (a.number < 0) != (b.number < 0) && std::max(a.number, b.number) >= -std::min(a.number, b.number);
    case RuleKind::weekDays:
        return (a.value & b.value) == 0;
    default:
        return false;
    }
}

bool isEmptySpan(const RuleCondition& a, const RuleCondition& b) {
    if (a.key == RuleKey::beforeTimeOfDay && b.key == RuleKey::afterTimeOfDay)
        return a.value <= b.value + 1;
    return a.key == RuleKey::before && b.key == RuleKey::after && a.date.getSeconds() <= b.date.getSeconds() + 1;
}

std::string wordOf(const RuleCondition& condition) {
    return std::string(ruleWords[static_cast<size_t>(condition.key) - 1].word);
}

/// Why a condition alone never holds.
std::string whyNever(const RuleCondition& condition, const IncludeExclude::References& references) {
    switch (condition.key) {
    case RuleKey::before:
        return condition.date < DateTime() ? "that moment is past" : "";
    case RuleKey::weekDays:
        return condition.value == 0 ? "it names no day" : "";
    case RuleKey::beforeTimeOfDay:
        return condition.value == 0 ? "nothing is before midnight" : "";
    case RuleKey::afterTimeOfDay:
        return condition.value >= secondsOfDay - 1 ? "the day is over by then" : "";
    case RuleKey::group:
        return "no record tells a group";
    case RuleKey::ref:
        return references.count(condition.text) == 0 ? "there is no block ref:" + condition.text : "";
    case RuleKey::datatype:
        return kindsOf(condition) == 0 ? "records are called runtally, module and process" : "";
    default:
        break;
    }
    const bool isText = kindOf(condition.key) == RuleKind::fact || kindOf(condition.key) == RuleKind::machine;
    return isText && condition.text.empty() ? "an empty pattern fits nothing" : "";
}

/// Whether a condition holds for every record, at any time and on any machine.
bool isTrivial(const RuleCondition& condition) {
    switch (condition.key) {
    case RuleKey::datatype:
        return kindsOf(condition) == allRecords;
    case RuleKey::app:
    case RuleKey::exe:
    case RuleKey::host:
    case RuleKey::os:
    case RuleKey::platform:
    case RuleKey::domain:
    case RuleKey::arch:
        return condition.text == "*";
    case RuleKey::duration:
        return condition.number == 0;
    case RuleKey::weekDays:
        return condition.value == everyDay;
    case RuleKey::after:
        return condition.date < DateTime();
    case RuleKey::beforeTimeOfDay:
        return condition.value >= secondsOfDay;
    default:
        return false;
    }
}

bool isSame(const RuleCondition& a, const RuleCondition& b) {
    return a.key == b.key && a.text == b.text && a.number == b.number && a.value == b.value &&
           a.date.getSeconds() == b.date.getSeconds();
}

/// Whether the condition `narrow` holds only where `wide` does.
bool implies(const RuleCondition& narrow, const RuleCondition& wide) {
    if (isSame(narrow, wide))
        return true;
    return narrow.key == wide.key && kindOf(wide.key) == RuleKind::fact && !isPattern(narrow.text) &&
           wildcardMatch(wide.text, narrow.text);
}

/// Whether `later` can only hold where `earlier` does.
bool covers(const Rule& earlier, const Rule& later) {
    return std::all_of(earlier.conditions.begin(), earlier.conditions.end(), [&](const RuleCondition& wide) {
        return isTrivial(wide) || std::any_of(later.conditions.begin(), later.conditions.end(),
                                              [&](const RuleCondition& narrow) { return implies(narrow, wide); });
    });
}

/// The rules that come before another, by what one must have in common with them to be covered. Long files would take
/// hours: after so many comparisons nothing is looked for any more.
class EarlierRules {
public:
    /// The first that decides wherever `later` could; null if none is found.
    const Rule* coverOf(const Rule& later) {
        const Rule* first = unconditional_;
        const auto look = [&](const std::vector<const Rule*>& rules) {
            for (const Rule* rule : rules) {
                if (budget_ == 0 || (first && first->line <= rule->line))
                    return;
                --budget_;
                if (covers(*rule, later))
                    first = rule;
            }
        };
        for (const RuleCondition& condition : later.conditions)
            if (const auto same = byCondition_.find(identityOf(condition)); same != byCondition_.end())
                look(same->second);
        look(byPattern_);
        return first;
    }

    void add(const Rule& rule) {
        const auto telling = std::find_if(rule.conditions.begin(), rule.conditions.end(),
                                          [](const RuleCondition& condition) { return !isTrivial(condition); });
        if (telling == rule.conditions.end())
            unconditional_ = unconditional_ ? unconditional_ : &rule;
        else if (kindOf(telling->key) == RuleKind::fact && isPattern(telling->text))
            byPattern_.push_back(&rule);
        else
            byCondition_[identityOf(*telling)].push_back(&rule);
    }

private:
    static std::string identityOf(const RuleCondition& condition) {
        return wordOf(condition) + '=' + condition.text + '|' + std::to_string(condition.number) + '|' +
               std::to_string(condition.value) + '|' + std::to_string(condition.date.getSeconds());
    }

    const Rule* unconditional_ = nullptr;
    std::vector<const Rule*> byPattern_;
    std::unordered_map<std::string, std::vector<const Rule*>> byCondition_;
    uint32_t budget_ = 2'000'000;
};

class VainRules {
public:
    VainRules(const std::vector<Rule>& rules, const IncludeExclude::References& references, const FindingSink& sink)
        : rules_(rules), references_(references), sink_(sink) {}

    void run() {
        for (const auto& [name, block] : references_)
            lookAtBlock(name, block);
        for (const Rule& rule : rules_) {
            tellReferences(rule);
            lookAtRule(rule);
        }
        for (const auto& [name, block] : references_)
            if (used_.count(name) == 0)
                sink_.warning(block.line, "the block \"" + name + "\" is used by no rule",
                              "use it by ref=" + name + ", or remove it");
        if (rules_.empty())
            sink_.error(1, "the file has no rules, so no record is wanted", "write include datatype=* to want all");
    }

private:
    void lookAtRule(const Rule& rule) {
        if (const std::string why = whyItNeverHolds(rule, references_); !why.empty()) {
            const bool isReference = why.find("no block ref:") != std::string::npos;
            if (!isReference) // of which has been told
                sink_.warning(rule.line, "the rule never holds: " + why, "correct it, or remove it");
            return;
        }
        if (const Rule* cover = earlier_.coverOf(rule))
            sink_.warning(rule.line,
                          "the rule is never reached, since that of line " + std::to_string(cover->line) +
                              " decides before it",
                          "put it before that line, or remove it");
        earlier_.add(rule);
    }

    void lookAtBlock(const std::string& name, const Rule& block) {
        tellReferences(block);
        if (std::all_of(block.conditions.begin(), block.conditions.end(),
                        [](const RuleCondition& c) { return isTime(kindOf(c.key)); }))
            sink_.warning(block.line, "the block \"" + name + "\" holds times alone, and so never holds",
                          "put the times into the rule");
        for (const RuleCondition& condition : block.conditions)
            if (const std::string why = whyNever(condition, references_); !why.empty() && condition.key != RuleKey::ref)
                sink_.warning(condition.line, "the condition " + wordOf(condition) + " never holds: " + why,
                              "correct it, or remove it");
        std::set<std::string> seen;
        if (leadsTo(block, name, seen))
            sink_.warning(block.line, "the block \"" + name + "\" leads back to itself", "take that ref out of it");
    }

    bool leadsTo(const Rule& block, const std::string& name, std::set<std::string>& seen) const {
        return std::any_of(block.conditions.begin(), block.conditions.end(), [&](const RuleCondition& condition) {
            if (condition.key != RuleKey::ref || !seen.insert(condition.text).second)
                return false;
            const auto next = references_.find(condition.text);
            return condition.text == name || (next != references_.end() && leadsTo(next->second, name, seen));
        });
    }

    void tellReferences(const Rule& rule) {
        for (const RuleCondition& condition : rule.conditions) {
            if (condition.key != RuleKey::ref)
                continue;
            used_.insert(condition.text);
            if (references_.count(condition.text) != 0)
                continue;
            std::vector<std::string_view> names;
            for (const auto& [name, block] : references_)
                names.emplace_back(name);
            sink_.warning(condition.line, "there is no block ref:" + condition.text + ", so the condition never holds",
                          hintOr(condition.text, names, "write the block"));
        }
    }

    const std::vector<Rule>& rules_;
    const IncludeExclude::References& references_;
    const FindingSink& sink_;
    std::set<std::string> used_;
    EarlierRules earlier_; // that may hold
};

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Takes two digits and the mark that may stand before them off the front; false if there are none up to `most`.
bool takeTwo(std::string_view& rest, char mark, int32_t most) {
    if (rest.starts_with(mark))
        rest.remove_prefix(1);
    const std::string digits(rest.substr(0, 2));
    rest.remove_prefix(digits.size());
    return digits.size() == 2 && isDigits(digits) && toNumber(digits) <= most;
}

/// Whether a date's text is what its reader takes for it: what isn't digits is passed over there.
bool isWholeDate(std::string_view value) {
    std::string_view date = value.substr(0, value.find('T'));
    std::string_view time = date.size() == value.size() ? std::string_view() : value.substr(date.size() + 1);
    if (!isDigits(date.substr(0, 4)) || date.size() < 4)
        return false;
    date.remove_prefix(4);
    for (const int32_t most : {12, 31})
        if (!date.empty() && !takeTwo(date, '-', most))
            return false;
    time = time.substr(0, time.find_first_of("Z+-"));
    for (const int32_t most : {23, 59, 59})
        if (!time.empty() && !takeTwo(time, ':', most))
            return false;
    return date.empty() && time.empty();
}
} // namespace

std::string whyItNeverHolds(const Rule& rule, const IncludeExclude::References& references) {
    unsigned kinds = allRecords;
    for (const RuleCondition& condition : rule.conditions) {
        if (const std::string why = whyNever(condition, references); !why.empty())
            return wordOf(condition) + ", for " + why;
        kinds &= kindsOf(condition);
        for (const RuleCondition& other : rule.conditions)
            if ((condition.key == other.key && contradict(condition, other)) || isEmptySpan(condition, other))
                return wordOf(condition) + " and " + wordOf(other) + " exclude each other";
    }
    return kinds == 0 ? "no kind of record tells all that it asks for" : "";
}

bool canHoldFor(std::string_view datatype, const Rule& rule, const IncludeExclude::References& references) {
    const auto kind = std::find(recordKinds.begin(), recordKinds.end(), datatype) - recordKinds.begin();
    return whyItNeverHolds(rule, references).empty() &&
           std::all_of(rule.conditions.begin(), rule.conditions.end(),
                       [&](const RuleCondition& condition) { return (kindsOf(condition) & (1U << kind)) != 0; });
}

bool alwaysHoldsFor(std::string_view datatype, const Rule& rule) {
    return std::all_of(rule.conditions.begin(), rule.conditions.end(), [&](const RuleCondition& condition) {
        return isTrivial(condition) || (condition.key == RuleKey::datatype && wildcardMatch(condition.text, datatype));
    });
}

void tellVainRules(const std::vector<Rule>& rules, const IncludeExclude::References& references,
                   const FindingSink& sink) {
    VainRules(rules, references, sink).run();
}

void RuleFileReader::tellValue(const RuleCondition& condition, const std::string& value) const {
    const std::string what = "\"" + value + "\"";
    const bool hasCapitals = value != toLowerCopy(value) && value.find("ACCESS DENIED") == std::string::npos;
    char* end = nullptr;
    switch (kindOf(condition.key)) {
    case RuleKind::date:
        if (!isWholeDate(value))
            sink_.warning(lineNumber_, what + " is no date, and is only read in part",
                          "write it as 2030-01-31 or 2030-01-31T12:00:00");
        return;
    case RuleKind::timeOfDay: {
        std::string_view rest = value;
        const std::string hours(rest.substr(0, rest.find(':')));
        rest.remove_prefix(hours.size());
        const bool isTimeOfDay = isDigits(hours) && toNumber(hours) <= 24 && (rest.empty() || takeTwo(rest, ':', 59)) &&
                                 (rest.empty() || takeTwo(rest, ':', 59)) && condition.value <= secondsOfDay;
        if (!isTimeOfDay)
            sink_.warning(lineNumber_, what + " is no time of day", "write it as 17, 08:30 or 08:30:15");
        return;
    }
    case RuleKind::number:
        static_cast<void>(std::strtod(value.c_str(), &end));
        if (value.empty() || *end != '\0')
            sink_.warning(lineNumber_, what + " is no number, and is only read in part",
                          "write digits, perhaps with - before them");
        return;
    default:
        break;
    }
    const std::vector<std::string_view> kinds(recordKinds.begin(), recordKinds.end());
    static const std::vector<std::string_view> architectures{"i386", "mips",  "alpha",   "powerpc",
                                                             "ia64", "amd64", "unknown", "ia32_on_win64"};
    const auto fitsOneOf = [&](const std::vector<std::string_view>& words) {
        return std::any_of(words.begin(), words.end(), [&](std::string_view w) { return wildcardMatch(value, w); });
    };
    if (condition.key == RuleKey::datatype && !fitsOneOf(kinds))
        sink_.warning(lineNumber_, "no record has the datatype " + what,
                      hintOr(value, kinds, "write runtally, module or process"));
    else if (condition.key == RuleKey::platform && !fitsOneOf({"linux", "windows"}))
        sink_.warning(lineNumber_, "no platform is called " + what,
                      hintOr(value, {"linux", "windows"}, "write linux or windows"));
    else if (condition.key == RuleKey::arch && !fitsOneOf(architectures))
        sink_.warning(lineNumber_, "no architecture is called " + what,
                      value == "x86_64" ? "write amd64" : hintOr(value, architectures, "write it as amd64"));
    else if (condition.key == RuleKey::os && !isPattern(value) && value.find(' ') == std::string::npos)
        sink_.warning(lineNumber_, "no system is called just " + what, "write os=\"" + value + "*\"");
    else if ((condition.key == RuleKey::exe || condition.key == RuleKey::module) && hasCapitals)
        sink_.warning(lineNumber_, "the pattern never fits, since executables and libraries are told in lower case",
                      "write " + toLowerCopy(value));
    else if (condition.key == RuleKey::exe && std::string_view("/*?(<").find((value + " ")[0]) == std::string::npos)
        sink_.warning(lineNumber_, "exe is compared with the whole path, which " + what + " never is",
                      value.find('/') == std::string::npos ? "write exe=*/" + value : "begin it with / or *");
    else if (condition.key == RuleKey::user && value.find_first_of("\\/") != std::string::npos)
        sink_.warning(lineNumber_, "user is compared with the name alone", "leave the domain out");
    else if (value.empty())
        sink_.warning(lineNumber_, "the condition " + wordOf(condition) + " has an empty pattern, which fits nothing",
                      "write * for any text");
}

} // namespace Velmor
