#pragma once

#include "shared/library/common/errors/Findings.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace Velmor {

/// How strongly an administrator's name for an executable stands against what the file says about itself.
enum class MappingKind : int32_t {
    none = 0,
    ignore = 1,    // the executable is no application
    mapAlways = 2, // the administrator's name, whatever the file says
    mapMedium = 3, // the file's description, else the administrator's name
    mapLast = 4,   // the administrator's name if the file says nothing
};

struct Mapping {
    std::string value;
    MappingKind kind = MappingKind::none;
};

/// From a file name in lower case, without directory and extension, to its mapping.
using ApplicationMappings = std::map<std::string, Mapping, std::less<>>;

/// Reads the text of a mappings file line by line, and tells the sink what does nothing.
class ApplicationMappingsReader {
public:
    explicit ApplicationMappingsReader(FindingSink sink = {}) : sink_(std::move(sink)) {}

    /// Reads a file whole; the line that ends the reading before its end, or 0. Throws FileException.
    int32_t readFile(const std::string& fileName);

    /// Takes the next line. False if it opens a block that has no kind; the reading ends there.
    bool addLine(std::string line);

    const ApplicationMappings& mappings() const { return mappings_; }

private:
    void addTopLevel(const std::string& line);
    void addEntry(const std::string& line);
    void tellTopLevel(const std::string& line) const;
    void tellEntry(const std::string& name, const Mapping& mapping);
    void tellEnd() const;

    FindingSink sink_;
    std::map<std::string, int32_t> linesOfNames_; // while there is somebody to tell
    int32_t line_ = 0;                            // at hand, from 1
    int32_t blockLine_ = 0;                       // of the word that began the block
    ApplicationMappings mappings_;
    MappingKind kind_ = MappingKind::none; // of the block at hand, or of the next one
    bool inBlock_ = false;
};

} // namespace Velmor
