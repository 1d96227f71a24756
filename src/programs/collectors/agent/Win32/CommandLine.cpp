#include "programs/collectors/agent/Win32/CommandLine.h"

#include <algorithm>

namespace Velmor {

namespace {
constexpr std::string_view whiteSpace = " \t\n\r";
constexpr std::string_view wordEnds = " \t\n\r-\"'";

class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    std::vector<Argument> run() {
        while (skipWhiteSpace())
            takeNext();
        if (optionOpen_)
            addValue({});
        return std::move(arguments_);
    }

private:
    bool skipWhiteSpace() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(whiteSpace), rest_.size()));
        return !rest_.empty();
    }

    void takeNext() {
        const char first = rest_.front();
        if (first == '-')
            takeOption();
        else if (first == '"' || first == '\'')
            addValue(takeQuoted(first));
        else
            addValue(takeWord());
    }

    void takeOption() {
        if (optionOpen_)
            addValue({});
        rest_.remove_prefix(1);
        if (rest_.starts_with('-')) {
            rest_.remove_prefix(1);
            option_ = takeWord();
        } else {
            option_ = rest_.substr(0, 1);
            rest_.remove_prefix(option_.size());
        }
        optionOpen_ = true;
    }

    std::string_view takeWord() {
        const std::string_view word = rest_.substr(0, rest_.find_first_of(wordEnds));
        rest_.remove_prefix(word.size());
        return word;
    }

    std::string_view takeQuoted(char quote) {
        rest_.remove_prefix(1);
        const size_t end = rest_.find(quote);
        const std::string_view text = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return text;
    }

    void addValue(std::string_view value) {
        arguments_.emplace_back(option_, value);
        option_ = {};
        optionOpen_ = false;
    }

    std::string_view rest_;
    std::string_view option_;
    bool optionOpen_ = false; // an option waits for its value
    std::vector<Argument> arguments_;
};
} // namespace

std::vector<Argument> parseCommandLine(std::string_view text) {
    return Scanner(text).run();
}

} // namespace Velmor
