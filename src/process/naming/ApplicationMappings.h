#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

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

/// Reads the text of a mappings file line by line.
class ApplicationMappingsReader {
public:
    /// Takes the next line. False if it opens a block that has no kind; the reading ends there.
    bool addLine(std::string line);

    const ApplicationMappings& mappings() const { return mappings_; }

private:
    void addTopLevel(const std::string& line);
    void addEntry(const std::string& line);

    ApplicationMappings mappings_;
    MappingKind kind_ = MappingKind::none; // of the block at hand, or of the next one
    bool inBlock_ = false;
};

} // namespace Velmor
