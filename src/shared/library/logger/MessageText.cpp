// The text form of a message, and the filling in of its parameters.

#include "shared/library/common/text/ParamStream.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/LogCommons.h"

#include <cstdlib>

namespace Velmor {

namespace {
constexpr char fieldEnd = '\x1c';
constexpr std::string_view familyWord = "Velmor";
constexpr std::string_view debugWord = "DEBUG";
constexpr std::string_view logWord = "LOG";

/// Takes the text up to the first `separator` off the front of `rest`; without one, all of it.
std::string_view takeField(std::string_view& rest, char separator) {
    const auto end = rest.find(separator);
    const auto field = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return field;
}

int32_t takeNumber(std::string_view& rest) {
    return toNumber(std::string(takeField(rest, fieldEnd)));
}

void appendField(std::string& text, std::string_view field) {
    text.append(field).push_back(fieldEnd);
}

/// The type letter that a conversion expects; 0 if it takes none.
char expectedLetter(char conversion) {
    switch (conversion) {
    case 'd':
        return 'e';
    case 'f':
    case 'i':
        return ParamStream::numberLetter;
    case 'p':
        return 'p';
    case 's':
        return ParamStream::textLetter;
    default:
        return 0;
    }
}

void appendParameter(std::string& out, std::string_view parameter, char expected) {
    const bool fits = !parameter.empty() && parameter.front() == expected;
    const std::string_view value = parameter.substr(parameter.empty() ? 0 : 1);
    if (!fits)
        out += '\\';
    out += value;
    if (!fits)
        out += '\\';
}
} // namespace

void LogCommons::encodeMessage(const LogMessage& message, std::string& text) {
    text.clear();
    appendField(text, familyWord);
    appendField(text, message.isLog ? logWord : debugWord);
    appendField(text, std::to_string(message.program));
    appendField(text, std::to_string(message.module));
    appendField(text, std::to_string(message.time.getSeconds()));
    appendField(text, std::to_string(message.isLog ? message.severity : message.level));
    appendField(text, message.text);
    if (message.isLog)
        appendField(text, std::to_string(message.messageId));
}

bool LogCommons::decodeMessage(std::string_view text, LogMessage& message) {
    if (takeField(text, fieldEnd) != familyWord)
        return false;
    const std::string_view kind = takeField(text, fieldEnd);
    if (kind != debugWord && kind != logWord)
        return false;
    message.isLog = kind == logWord;
    message.program = takeNumber(text);
    message.module = takeNumber(text);
    message.time = DateTime(takeNumber(text));
    (message.isLog ? message.severity : message.level) = takeNumber(text);
    message.text = takeField(text, fieldEnd);
    message.messageId = message.isLog ? takeNumber(text) : LogMessage::noMessageId;
    return true;
}

bool LogCommons::isDebugMessage(std::string_view text) {
    return text.size() >= familyWord.size() + 1 + debugWord.size() &&
           text.substr(familyWord.size() + 1, debugWord.size()) == debugWord;
}

void LogCommons::formatMessage(std::string& format, std::string_view parameters) {
    std::string out;
    out.reserve(format.size() + parameters.size());
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            out += format[i];
            continue;
        }
        ++i; // both characters of the conversion go
        if (i < format.size() && format[i] == '%')
            out += '%';
        else if (i == format.size() || parameters.empty())
            out += "<?}";
        else
            appendParameter(out, takeField(parameters, ParamStream::separator), expectedLetter(format[i]));
    }
    format = std::move(out);
}

} // namespace Velmor
