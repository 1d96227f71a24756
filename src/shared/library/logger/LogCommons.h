#pragma once

#include "shared/library/common/errors/Findings.h"
#include "shared/library/logger/LogMessage.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// Severities of numbered messages, and the thresholds on them.
namespace Severity {
constexpr int32_t notice = 0;
constexpr int32_t warning = 1;
constexpr int32_t error = 2;
constexpr int32_t critical = 3;
constexpr int32_t fatal = 4;
constexpr int32_t nothing = 5; // as a threshold: nothing passes
constexpr int32_t unknown = 6; // answer for an unknown name
} // namespace Severity

/// Numbers of the modules that send messages.
namespace LogModule {
constexpr int32_t core = 0;
constexpr int32_t configuration = 1;
constexpr int32_t logger = 2;
constexpr int32_t protocol = 3;
constexpr int32_t time = 4;
constexpr int32_t ipc = 6;
constexpr int32_t runtally = 8;
constexpr int32_t agent = 21;
constexpr int32_t unknown = 51; // answer for an unknown name
} // namespace LogModule

namespace LogProgram {
constexpr int32_t unknown = 0; // answer for an unknown name
constexpr int32_t core = 1;
constexpr int32_t runtally = 2;
} // namespace LogProgram

/// What `LogCommons::loadMessages` did.
struct LoadResult {
    bool ok = false;
    std::string error;
    std::vector<std::string> loaded;   // module names
    std::vector<std::string> rejected; // module names
    std::vector<int32_t> counts;       // messages entered, one for each of `loaded`
};

/// What all of logging shares: names and numbers, the text form of a message, the line layout, and the catalogue with
/// the wording of numbered messages. The catalogue is filled during start-up and only read afterwards.
class LogCommons {
public:
    virtual ~LogCommons() = default;

    /// The name of severity 0 to 4, else an empty text. The way back compares exactly and gives 6 for an unknown text.
    static std::string_view severityName(int32_t severity);
    static int32_t severityFromName(std::string_view name);

    /// "<<Unknown>>" for an unknown number; the ways back compare without regard to case and give 51 and 0.
    static std::string_view moduleName(int32_t module);
    static int32_t moduleFromName(std::string_view name);
    static std::string_view programName(int32_t program);
    static int32_t programFromName(std::string_view name);

    /// The form in which a message travels between centre, messenger and core service, and the way back; false if
    /// `text` isn't such a form.
    static void encodeMessage(const LogMessage& message, std::string& text);
    static bool decodeMessage(std::string_view text, LogMessage& message);

    /// Whether an encoded text is a debug message.
    static bool isDebugMessage(std::string_view text);

    /// The line for the debug file, without a line end. `found`: `message.text` is the catalogue's wording already.
    static std::string formatLine(const LogMessage& message, bool found);

    /// Replaces each conversion in `format` by the next of `parameters`, the text of a `ParamStream`. A parameter of
    /// another type than the conversion expects stands between backslashes.
    static void formatMessage(std::string& format, std::string_view parameters);

    /// Reads the catalogue files "LogMessages\*.mess" below `directory` of the modules named in `modules`, a list
    /// separated by commas, or "all". The first text of a number stays. Adds to `findings`, if there are any, what is
    /// otherwise than it looks.
    LoadResult loadMessages(std::string_view directory, std::string_view modules, Findings* findings = nullptr);

    /// The numbers of a module that have a wording, each with the line of its file.
    const std::map<int32_t, int32_t>& linesOf(int32_t module) { return lines_[module]; }

    /// The wording of a message; false if the catalogue hasn't got it.
    bool findMessage(int32_t module, int32_t number, std::string& text) const;

private:
    void loadFile(const std::string& path, const std::string& name, LoadResult& result, const FindingSink& sink);
    void tellMessage(const std::string& number, const std::string& text, int32_t module, int32_t line,
                     const FindingSink& sink);

    std::map<int32_t, std::map<int32_t, int32_t>> lines_;      // of messages, by module and number
    std::map<std::string, std::string, std::less<>> messages_; // "module.number" to wording
};

} // namespace Velmor
