#pragma once

#include "shared/library/common/configuration/DOMNode.h"
#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/pointers/SmartPointer.h"
#include "shared/library/common/system/Monopoly.h"
#include "shared/library/common/time/TimeSpan.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Velmor {

class LoggerCentre;
class Logger;

/// Reads settings: a dotted key and a type go in, a value or a result code comes out. A get that fails leaves its
/// out-parameter alone, which is how defaults work. Gets take no lock: the tree doesn't change while threads read it.
class ConfReader {
public:
    /// Result codes of all gets.
    static constexpr int32_t FOUND = 0;
    static constexpr int32_t NO_TYPE = 1;   // of the entry, or of one it refers to; so it has no value
    static constexpr int32_t NOT_FOUND = 2; // the key, or one it refers to
    static constexpr int32_t OTHER_TYPE = 3;
    static constexpr int32_t BAD_BOOL = 4;
    static constexpr int32_t BAD_TEXT = 5;      // of a file name or a time span
    static constexpr int32_t BAD_REFERENCE = 6; // without its end, or one that leads back to itself

    explicit ConfReader(const SmartPointer<LoggerCentre>& centre);
    ConfReader(const ConfReader&) = delete;
    ConfReader& operator=(const ConfReader&) = delete;
    virtual ~ConfReader();

    /// Replaces the settings by those of a file. A mistake is reported with file and line; the entries complete before
    /// it stay. The sink is told of it too, and of what is passed over without being one.
    void buildDOMTree(const std::string& fileName, const FindingSink& sink = {});

    /// What went wrong in the last build, in one line with file and line; empty if nothing did.
    const std::string& getLastError() const { return lastError_; }

    /// All entries, below a node of no meaning; null before the first build.
    const DOMNode* getTree() const { return root_.get(); }
    /// The entry of a dotted key; null if there is none.
    const DOMNode* find(std::string_view key) const;

    int32_t getString(std::string_view key, std::string& text, bool trim, bool lowerCase) const;
    int32_t getBool(std::string_view key, bool& value) const;
    int32_t getInteger(std::string_view key, int32_t& value) const;
    /// Normalised, with a separator at its end.
    int32_t getDirName(std::string_view key, std::string& text) const;
    /// Normalised.
    int32_t getFileName(std::string_view key, std::string& text) const;
    int32_t getTimeSpan(std::string_view key, TimeSpanParts& parts) const;

private:
    int32_t getRaw(std::string_view key, std::string_view typeWord, std::string& text) const;
    int32_t resolveReferences(std::string_view key, std::string& text) const;
    int32_t resolveReference(std::string_view reference, std::string& value) const;

    std::unique_ptr<DOMNode> root_; // null before the first build
    std::unique_ptr<Logger> logger_;
    Monopoly monopoly_; // one build at a time
    std::string lastError_;
};

} // namespace Velmor
