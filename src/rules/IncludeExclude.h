#pragma once

#include "rules/RuleCondition.h"
#include "rules/RuleFacts.h"
#include "shared/library/common/errors/Findings.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

enum class RuleStatus : int32_t { none = 0, include = 1, exclude = 2 };

/// A rule holds if all of its conditions hold; a "ref:" block, if one of them does.
struct Rule {
    RuleStatus status = RuleStatus::none;
    std::vector<RuleCondition> conditions;
    int32_t line = 0; // of the file, where the rule begins
};

/// Decides which records are wanted: the first rule of its file whose conditions all hold decides, and without one the
/// record isn't wanted. Filled during the configuration; `isIncluded` may then be called by any thread.
class IncludeExclude {
public:
    using References = std::map<std::string, Rule, std::less<>>;

    virtual ~IncludeExclude() = default;

    /// Adds the rules of a file. False with a text that names what is wrong, and the line, if there is one; the rules
    /// read so far stay. Tells the sink what holds never, or otherwise than it looks.
    bool load(const std::string& fileName, std::string& errorText, const FindingSink& sink = {});

    /// Whether a record of that datatype can be wanted, as far as the rules themselves tell.
    bool canInclude(std::string_view datatype) const;

    bool isIncluded(const RuleFacts& facts);

    /// The line of the rule that decided last, whichever thread asked; -1 until one has.
    int32_t getMatchedLine() const { return matchedLine_.load(std::memory_order_relaxed); }

    /// Takes the rules of another over in place of its own. While nobody asks.
    void take(IncludeExclude& other);

    /// How many rules there are, without those that are only referred to.
    size_t count() const { return rules_.size(); }

    /// Drops all rules.
    void clear();

private:
    std::vector<Rule> rules_; // in file order
    References references_;   // the "ref:" blocks by name
    std::atomic<int32_t> matchedLine_{-1};
};

} // namespace Velmor
