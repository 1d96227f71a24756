#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Velmor {

/// What a condition looks at. The numbers are those by which facts and conditions meet.
enum class RuleKey : int32_t {
    none = 0,
    before = 1,
    after = 2,
    weekDays = 3,
    beforeTimeOfDay = 4,
    afterTimeOfDay = 5,
    user = 6,
    group = 7,
    project = 8,
    exe = 9,
    app = 10,
    module = 11,
    host = 12,
    os = 13,
    platform = 14,
    domain = 15,
    arch = 16,
    datatype = 17,
    cpu = 18,
    io = 19,
    memory = 20,
    duration = 21,
    ref = 22,
};

/// How the value of a key is read, and against what it is tested.
enum class RuleKind : uint8_t {
    date, // against the moment of the test, as the next two
    weekDays,
    timeOfDay,
    fact,      // a pattern, against a fact of the record
    machine,   // a pattern, against what the machine itself answers, or else a fact
    number,    // a limit, against a fact of the record
    reference, // the name of a "ref:" block
};

struct RuleWord {
    std::string_view word; // as a rule file writes it
    RuleKey key;
    RuleKind kind;
};

/// All keys, in the order of their numbers from 1.
constexpr std::array<RuleWord, 22> ruleWords{{
    {"before", RuleKey::before, RuleKind::date},
    {"after", RuleKey::after, RuleKind::date},
    {"wdays", RuleKey::weekDays, RuleKind::weekDays},
    {"before-tod", RuleKey::beforeTimeOfDay, RuleKind::timeOfDay},
    {"after-tod", RuleKey::afterTimeOfDay, RuleKind::timeOfDay},
    {"user", RuleKey::user, RuleKind::fact},
    {"group", RuleKey::group, RuleKind::fact},
    {"project", RuleKey::project, RuleKind::fact},
    {"exe", RuleKey::exe, RuleKind::fact},
    {"app", RuleKey::app, RuleKind::fact},
    {"module", RuleKey::module, RuleKind::fact},
    {"host", RuleKey::host, RuleKind::machine},
    {"os", RuleKey::os, RuleKind::machine},
    {"platform", RuleKey::platform, RuleKind::machine},
    {"domain", RuleKey::domain, RuleKind::machine},
    {"arch", RuleKey::arch, RuleKind::machine},
    {"datatype", RuleKey::datatype, RuleKind::fact},
    {"cpu", RuleKey::cpu, RuleKind::number},
    {"io", RuleKey::io, RuleKind::number},
    {"memory", RuleKey::memory, RuleKind::number},
    {"duration", RuleKey::duration, RuleKind::number},
    {"ref", RuleKey::ref, RuleKind::reference},
}};

constexpr RuleKind kindOf(RuleKey key) {
    return ruleWords[static_cast<size_t>(key) - 1].kind;
}
static_assert(std::all_of(ruleWords.begin(), ruleWords.end(), [](const RuleWord& row) {
    return kindOf(row.key) == row.kind && &ruleWords[static_cast<size_t>(row.key) - 1] == &row;
}));

constexpr bool isTime(RuleKind kind) {
    return kind == RuleKind::date || kind == RuleKind::weekDays || kind == RuleKind::timeOfDay;
}

/// The key of a word in a rule file, compared exactly.
constexpr std::optional<RuleKey> ruleKeyFromWord(std::string_view word) {
    for (const RuleWord& row : ruleWords)
        if (row.word == word)
            return row.key;
    return std::nullopt;
}

} // namespace Velmor
