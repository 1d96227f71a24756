#include "process/naming/ApplicationMappings.h"

#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/text/TextUtils.h"

#include <algorithm>
#include <vector>

namespace Velmor {

int32_t ApplicationMappingsReader::readFile(const std::string& fileName) {
    FilePlain file(fileName);
    file.open(FileBase::ACCESS_READ);
    while (!file.eof()) {
        std::string text;
        file.readLine(text);
        if (!addLine(std::move(text)))
            return line_;
    }
    tellEnd();
    return 0;
}

bool ApplicationMappingsReader::addLine(std::string line) {
    ++line_;
    trimBlanks(line);
    if (line.empty() || line.front() == '#')
        return true;
    if (!inBlock_ && line == "{") {
        inBlock_ = kind_ != MappingKind::none;
        if (!inBlock_)
            sink_.error(line_, "a block has no kind; the mappings aren't taken over",
                        "write ignore, mapalways, mapmedium or maplast before it");
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
    tellTopLevel(line);
    blockLine_ = line_;
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
    const Mapping mapping{std::move(value), kind_};
    if (sink_)
        tellEntry(name, mapping);
    mappings_.try_emplace(std::move(name), mapping);
}

void ApplicationMappingsReader::tellTopLevel(const std::string& line) const {
    if (!sink_)
        return;
    static const std::vector<std::string_view> kinds{"ignore", "mapalways", "mapmedium", "maplast"};
    const std::string word = toLowerCopy(line);
    if (kind_ != MappingKind::none)
        sink_.warning(blockLine_, "the word has no block", "write { and } on lines of their own behind it");
    if (std::find(kinds.begin(), kinds.end(), word) != kinds.end())
        return;
    if (word.ends_with("{"))
        sink_.warning(line_, "the line opens no block", "write { on a line of its own");
    else if (word == "}")
        sink_.warning(line_, "a } closes nothing", "remove it");
    else
        sink_.warning(line_, "\"" + line + "\" stands in no block, and is no kind of one",
                      hintOr(word, kinds, "put it into a block of ignore, mapalways, mapmedium or maplast"));
}

void ApplicationMappingsReader::tellEntry(const std::string& name, const Mapping& mapping) {
    const bool hasPath = name.find_first_of("/\\") != std::string::npos;
    const bool isQuoted = (name + mapping.value).find('"') != std::string::npos;
    const size_t point = name.rfind('.');
    if (const auto [first, isNew] = linesOfNames_.try_emplace(name, line_); !isNew)
        sink_.warning(line_,
                      "\"" + name + "\" has an entry in line " + std::to_string(first->second) + ", which counts",
                      "remove one of them");
    if (name == "{")
        sink_.warning(line_, "a block stands within a block", "close the one before it");
    else if (mapping.kind == MappingKind::ignore && name.find('=') != std::string::npos)
        sink_.warning(line_, "an entry to ignore has no name for the application", "write the file's name only");
    else if (mapping.kind != MappingKind::ignore && mapping.value.empty())
        sink_.warning(line_, "\"" + name + "\" is given no name", "write FILE = NAME");
    else if (hasPath)
        sink_.warning(line_, "the entry never fits, since it is compared with the file's name alone",
                      "leave the directory out");
    else if (name.find_first_of("*?") != std::string::npos)
        sink_.warning(line_, "the entry never fits, since names aren't patterns here", "write the whole name");
    else if (name.find_first_of("{}(),;:|") != std::string::npos || mapping.value.starts_with('='))
        sink_.warning(line_, "\"" + name + "\" is hardly the name of a file, or its own name begins with =",
                      "write one FILE = NAME on each line");
    else if (isQuoted)
        sink_.warning(line_, "quotes belong to the name here", "leave them out");
    else if (mapping.value.find(" #") != std::string::npos || name.find(" #") != std::string::npos)
        sink_.warning(line_, "what stands behind # belongs to the name here", "put comments on lines of their own");
    else if (point != std::string::npos && point > 0)
        sink_.warning(line_,
                      "the entry doesn't fit a file of that name, of which what follows the last point is cut off",
                      "write " + name.substr(0, point));
}

void ApplicationMappingsReader::tellEnd() const {
    if (inBlock_)
        sink_.error(blockLine_, "the block never closes", "write } on a line of its own");
    else if (kind_ != MappingKind::none)
        sink_.warning(blockLine_, "the word has no block", "write { and } on lines of their own behind it");
}

} // namespace Velmor
