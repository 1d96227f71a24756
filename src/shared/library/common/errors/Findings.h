#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// A mistake in a file that an administrator writes.
struct Finding {
    bool isError = false; // a start would fail, or record nothing; or the file is only read up to here
    std::string file;     // as the reader was given it
    int32_t line = 1;
    std::string what;   // is wrong, without a full stop
    std::string advice; // what to do, likewise
};

/// What is found in the files of a configuration.
class Findings {
public:
    /// Control bytes of what the file holds show as "?".
    void add(Finding finding);

    /// By file and line; of the same one once.
    std::vector<Finding> sorted() const;
    bool hasErrors() const;

    /// 0 if nothing was found, 1 for warnings, 2 for errors.
    int exitStatus() const;

    /// A line for each, "FILE:LINE: error|warning: what; what to do".
    std::string text() const;
    /// An array with an object for each.
    std::string json() const;

private:
    std::vector<Finding> list_;
};

/// The text form of one.
std::string findingLine(const Finding& finding);

/// Where the reader of a file tells what it meets. Without a list to fill it says nothing, as in an ordinary reading.
class FindingSink {
public:
    FindingSink() = default;
    /// The file is told by its whole path, as this system writes it.
    FindingSink(Findings& findings, std::string_view file);

    /// Whether anybody listens, for what is looked for only then.
    explicit operator bool() const { return findings_ != nullptr; }
    void error(int32_t line, std::string_view what, std::string_view advice) const { add(true, line, what, advice); }
    void warning(int32_t line, std::string_view what, std::string_view advice) const { add(false, line, what, advice); }

private:
    void add(bool isError, int32_t line, std::string_view what, std::string_view advice) const;

    Findings* findings_ = nullptr;
    std::string file_;
};

/// The one of `known` that `word` was most likely meant to be; empty if none is near. Case counts little.
std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known);

/// "did you mean X?" for the nearest, or else `otherwise`.
std::string hintOr(std::string_view word, const std::vector<std::string_view>& known, std::string_view otherwise);

/// Tells what of a file's bytes hurts its reader: another encoding than UTF-8, line ends of carriage returns alone and,
/// where it isn't passed over, a byte order mark. Comments, which begin with one of `commentMarks`, may hold anything.
void tellEncoding(std::string_view text, const FindingSink& sink, bool passesMark,
                  std::initializer_list<std::string_view> commentMarks);

/// The whole path of a file, as this system writes it.
std::string shownPath(std::string_view file);

} // namespace Velmor
