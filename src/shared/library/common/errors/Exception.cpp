#include "shared/library/common/errors/Exception.h"

#include <utility>

namespace Velmor {

namespace {
constexpr std::string_view lineBreak = "\r\n";

/// The file's own name without the letters of its extension; the point stays.
std::string_view shortFileName(std::string_view path) {
    if (const auto separator = path.find_last_of("\\/"); separator != std::string_view::npos)
        path.remove_prefix(separator + 1);
    if (const auto point = path.rfind('.'); point != std::string_view::npos)
        path = path.substr(0, point + 1);
    return path;
}
} // namespace

Exception::Exception(int32_t code, std::string description, std::string_view file, int32_t line)
    : code_(code), description_(std::move(description)) {
    addPosition(file, line);
}

void Exception::describe(std::string& out) const {
    describeAs(out, "Exception", {});
}

void Exception::getCodeText(std::string& out) const {
    out = std::to_string(getCategory()) + "." + std::to_string(code_);
}

std::string Exception::getCodeText() const {
    std::string text;
    getCodeText(text);
    return text;
}

void Exception::getFullDescription(std::string& out) const {
    describe(out);
    if (!description_.empty())
        out.append(lineBreak).append("  >  (").append(description_).append(")");
    if (positions_.empty())
        return;
    out.append(lineBreak).append("  >  ");
    for (size_t i = 0; i < positions_.size(); ++i) {
        if (i > 0)
            out.append(" - ");
        out.append(positions_[i].file).append("(").append(std::to_string(positions_[i].line)).append(")");
    }
}

std::string Exception::getFullDescription() const {
    std::string text;
    getFullDescription(text);
    return text;
}

void Exception::addPosition(std::string_view file, int32_t line) {
    if (!file.empty())
        positions_.push_back({std::string(shortFileName(file)), line});
}

void Exception::describeAs(std::string& out, std::string_view label, std::span<const std::string_view> texts) const {
    const bool known = code_ >= 0 && static_cast<size_t>(code_) < texts.size();
    out.assign(label).append(": ");
    out.append(known ? texts[static_cast<size_t>(code_)] : std::string_view("Unknown error"));
    out.append(" (Code: ").append(getCodeText()).append(")");
}

} // namespace Velmor
