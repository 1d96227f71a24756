#include "process/naming/ApplicationMappings.h"

#include "shared/library/common/text/TextUtils.h"

namespace Velmor {

bool ApplicationMappingsReader::addLine(std::string line) {
    trimBlanks(line);
    if (line.empty() || line.front() == '#')
        return true;
    if (!inBlock_ && line == "{") {
        inBlock_ = kind_ != MappingKind::none;
        return inBlock_;
    }
    if (!inBlock_) {
        addTopLevel(line);
    } else if (line == "}") {
        inBlock_ = false;
        kind_ = MappingKind::none;
    } else {
        addEntry(line);
    }
    return true;
}

void ApplicationMappingsReader::addTopLevel(const std::string& line) {
    const std::string word = toLowerCopy(line);
    if (word == "ignore")
        kind_ = MappingKind::ignore;
    else if (word == "mapalways")
        kind_ = MappingKind::mapAlways;
    else if (word == "mapmedium")
        kind_ = MappingKind::mapMedium;
    else if (word == "maplast")
        kind_ = MappingKind::mapLast;
}

void ApplicationMappingsReader::addEntry(const std::string& line) {
    std::string name = line;
    std::string value;
    const size_t equals = line.find('=');
    if (kind_ != MappingKind::ignore && equals != std::string::npos) {
        name = line.substr(0, equals);
        value = line.substr(equals + 1);
        trimBlanks(name);
        trimBlanks(value);
    }
    toLower(name);
    mappings_.try_emplace(std::move(name), Mapping{std::move(value), kind_});
}

} // namespace Velmor
