#include "shared/library/common/errors/Findings.h"

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <tuple>

namespace Velmor {

namespace {
auto keyOf(const Finding& finding) {
    return std::tie(finding.file, finding.line, finding.what);
}

std::string_view severityWord(const Finding& finding) {
    return finding.isError ? "error" : "warning";
}

char plain(char c) {
    if (c == '_' || c == ' ')
        return '-';
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

/// How many letters have to be put in, left out, exchanged or swapped with their neighbour.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> beforeLast(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool isSame = plain(a[i - 1]) == plain(b[j - 1]);
            row[j] = std::min({row[j - 1] + 1, last[j] + 1, last[j - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && plain(a[i - 1]) == plain(b[j - 2]) && plain(a[i - 2]) == plain(b[j - 1]))
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

/// The bytes of the UTF-8 letter at the front of a text; 0 if there is none.
size_t letterLength(std::string_view text) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80)
        return 1;
    if (first < 0xC2 || first > 0xF4)
        return 0;
    const size_t length = first < 0xE0 ? 2 : (first < 0xF0 ? 3 : 4);
    if (text.size() < length)
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((byteAt(i) & 0xC0U) != 0x80U)
            return 0;
    return length;
}

/// What is no UTF-8 shows as the letter for that.
std::string jsonText(std::string_view text) {
    std::string out = "\"";
    while (!text.empty()) {
        const size_t length = letterLength(text);
        if (length == 0)
            out += "\\ufffd";
        else if (text.front() == '"' || text.front() == '\\')
            out.append(1, '\\').append(1, text.front());
        else
            out += text.substr(0, length);
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return out + '"';
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = letterLength(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

/// The line that is no UTF-8, from 1, or 0.
int32_t foreignLine(std::string_view text, std::initializer_list<std::string_view> commentMarks) {
    for (int32_t line = 1; !text.empty(); ++line) {
        std::string_view content = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(content.size() + 1, text.size()));
        content.remove_prefix(std::min(content.find_first_not_of(" \t"), content.size()));
        const bool isComment = std::any_of(commentMarks.begin(), commentMarks.end(),
                                           [&](std::string_view mark) { return content.starts_with(mark); });
        if (!isComment && !isUtf8(content))
            return line;
    }
    return 0;
}
} // namespace

void Findings::add(Finding finding) {
    for (std::string* text : {&finding.file, &finding.what, &finding.advice})
        *text = printable(std::move(*text));
    list_.push_back(std::move(finding));
}

std::vector<Finding> Findings::sorted() const {
    std::vector<Finding> list = list_;
    std::stable_sort(list.begin(), list.end(), [](const Finding& a, const Finding& b) { return keyOf(a) < keyOf(b); });
    list.erase(
        std::unique(list.begin(), list.end(), [](const Finding& a, const Finding& b) { return keyOf(a) == keyOf(b); }),
        list.end());
    return list;
}

bool Findings::hasErrors() const {
    return std::any_of(list_.begin(), list_.end(), [](const Finding& finding) { return finding.isError; });
}

int Findings::exitStatus() const {
    if (hasErrors())
        return 2;
    return list_.empty() ? 0 : 1;
}

std::string findingLine(const Finding& finding) {
    return finding.file + ":" + std::to_string(finding.line) + ": " + std::string(severityWord(finding)) + ": " +
           finding.what + "; " + finding.advice;
}

std::string Findings::text() const {
    std::string text;
    for (const Finding& finding : sorted())
        text += findingLine(finding) + '\n';
    return text;
}

std::string Findings::json() const {
    std::string text = "[";
    for (const Finding& finding : sorted()) {
        text += text.size() > 1 ? ",\n " : "\n ";
        text += "{\"file\": " + jsonText(finding.file) + ", \"line\": " + std::to_string(finding.line) +
                ", \"severity\": " + jsonText(severityWord(finding)) + ", \"what\": " + jsonText(finding.what) +
                ", \"advice\": " + jsonText(finding.advice) + "}";
    }
    return text + (text.size() > 1 ? "\n]\n" : "]\n");
}

FindingSink::FindingSink(Findings& findings, std::string_view file) : findings_(&findings), file_(shownPath(file)) {}

std::string shownPath(std::string_view file) {
    std::string full;
    uint32_t error = 0;
    return platform().fileSystem->fullPath(file, full, error) ? full : std::string(file);
}

void FindingSink::add(bool isError, int32_t line, std::string_view what, std::string_view advice) const {
    if (findings_)
        findings_->add({isError, file_, line, std::string(what), std::string(advice)});
}

std::string_view nearestWord(std::string_view word, const std::vector<std::string_view>& known) {
    std::string_view nearest;
    size_t least = 0;
    for (const std::string_view candidate : known) {
        const size_t shorter = std::min(word.size(), candidate.size());
        const bool isPart = shorter >= 3 && distance(word.substr(0, shorter), candidate.substr(0, shorter)) == 0;
        const size_t far = std::min<size_t>(distance(word, candidate), isPart ? 2 : word.size() + candidate.size());
        const size_t longest = std::max(word.size(), candidate.size());
        if (far * 2 <= longest && (nearest.empty() || far < least)) {
            nearest = candidate;
            least = far;
        }
    }
    return nearest;
}

std::string hintOr(std::string_view word, const std::vector<std::string_view>& known, std::string_view otherwise) {
    const std::string_view nearest = nearestWord(word, known);
    return nearest.empty() ? std::string(otherwise) : "did you mean " + std::string(nearest) + "?";
}

void tellEncoding(std::string_view text, const FindingSink& sink, bool passesMark,
                  std::initializer_list<std::string_view> commentMarks) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (!sink)
        return;
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
        sink.error(1, "the file is in UTF-16", "store it in UTF-8");
        return;
    }
    if (text.starts_with(mark) && !passesMark)
        sink.warning(1, "a byte order mark stands before the first line, and belongs to its first word",
                     "store the file in UTF-8 without it");
    if (text.find('\n') == std::string_view::npos && text.find('\r') + 1 < text.size())
        sink.error(1, "lines end with carriage returns alone, so that all is one line", "end them with line feeds");
    if (const int32_t line = foreignLine(text, commentMarks); line > 0)
        sink.warning(line, "the line isn't UTF-8, so what it names is never met", "store the file in UTF-8");
}

} // namespace Velmor
