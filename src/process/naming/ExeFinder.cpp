#include "process/naming/ExeFinder.h"

#include "process/naming/SMScan.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/Logger.h"

#include <algorithm>
#include <array>

namespace Velmor {

namespace {
Logger logger;

/// Words at the end of a description that say nothing, the longer first.
constexpr std::array<std::string_view, 2> idleWords{"application file", "application"};

bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isPlainText(char c) {
    return (c >= ' ' && c <= '~') || c == '\t' || c == '\n' || c == '\r';
}

void dropUnlessPlain(std::string& text) {
    if (!std::all_of(text.begin(), text.end(), isPlainText))
        text.clear();
}

void clean(std::string& name) {
    const std::string lower = toLowerCopy(name);
    const auto idle = std::find_if(idleWords.begin(), idleWords.end(), [&](std::string_view word) {
        return word.size() < name.size() && lower.ends_with(word);
    });
    if (idle != idleWords.end()) {
        name.resize(name.size() - idle->size());
        while (name.size() > 2 && static_cast<unsigned char>(name.back()) <= ' ')
            name.pop_back();
    }
    if (std::none_of(name.begin(), name.end(), isAsciiLetter))
        name.clear();
}

std::string withoutExtension(const std::string& fileName) {
    return fileName.substr(0, fileName.rfind('.'));
}
} // namespace

ExeFinder::ExeFinder(const SmartPointer<LoggerUnit>& unit) {
    logger.set(unit);
    logger.debug(2, "ExeFinder: Created.");
}

ExeFinder::~ExeFinder() {
    logger.debug(2, "ExeFinder: Destroyed.");
    logger.release();
}

void ExeFinder::setMappings(const ApplicationMappings& mappings) {
    const MonopolyHold hold(access_);
    mappings_ = mappings;
}

void ExeFinder::forget() {
    const MonopolyHold hold(access_);
    stored_.clear();
}

std::string ExeFinder::find(const std::string& executable, bool isHere) {
    if (executable.empty() || executable.front() == '\0')
        return "[UNDEFINED]";
    const std::string key = toLowerCopy(isHere ? executable : FileUtils::getBaseName(executable));
    {
        const MonopolyHold hold(access_);
        if (const auto known = stored_.find(key); known != stored_.end()) {
            ExeInfo info = known->second;
            name(info);
            return info.applicationName;
        }
    }
    logger.debug(5, "ExeFinder: No information stored about \"%s\". Checking file directly.", executable);
    return examine(executable, key, isHere).applicationName;
}

/// Reads the file without holding the maps: a slow file system must not hold other names up.
ExeInfo ExeFinder::examine(const std::string& executable, const std::string& key, bool isHere) {
    ExeInfo info;
    const bool readable = isHere && SMScan::getFileInformation(info, key);
    info.menuName.clear();
    info.fileName = FileUtils::getBaseName(executable);
    const MonopolyHold hold(access_);
    if (readable)
        stored_.try_emplace(key, info);
    name(info);
    if (readable) {
        logger.debug(5, "ExeFinder: Stored \"%s\" = \"%s\" for future references.", key, info.applicationName);
        return info;
    }
    stored_.try_emplace(key, info);
    if (info.applicationName == ignored)
        logger.debug(5, "ExeFinder: Ignoring \"%s\".", executable);
    else
        logger.debug(5, "ExeFinder: No information found for \"%s\". Using \"%s\".", executable, info.applicationName);
    return info;
}

void ExeFinder::name(ExeInfo& info) const {
    if (nameByMapping(info) || nameByVersion(info) || nameByMenu(info) || !info.applicationName.empty())
        return;
    info.applicationName = withoutExtension(FileUtils::getBaseName(info.fileName));
    logger.debug(5, "ExeFinder: Using \"%s\" to \"%s\".", info.applicationName, info.fileName);
}

bool ExeFinder::nameByMapping(ExeInfo& info) const {
    if (mappings_.empty())
        return false;
    const auto mapping = mappings_.find(toLowerCopy(withoutExtension(info.fileName)));
    if (mapping == mappings_.end())
        return false;
    switch (mapping->second.kind) {
    case MappingKind::ignore:
        info.applicationName = ignored;
        return true;
    case MappingKind::mapAlways:
        info.applicationName = mapping->second.value;
        return true;
    case MappingKind::mapMedium:
        clean(info.fileDescription); // what has no letter is no description, and the value stands in its place
        info.applicationName = info.fileDescription.empty() ? mapping->second.value : info.fileDescription;
        return !info.fileDescription.empty();
    default:
        info.applicationName = mapping->second.value;
        return false;
    }
}

bool ExeFinder::nameByVersion(ExeInfo& info) const {
    if (info.productName.empty() && info.fileDescription.empty())
        return false;
    dropUnlessPlain(info.productName);
    dropUnlessPlain(info.fileDescription);
    const std::string source = info.fileDescription.empty() ? info.productName : info.fileDescription;
    info.applicationName = source;
    clean(info.applicationName);
    if (info.applicationName.empty())
        return false;
    logger.debug(5, "ExeFinder: Product name/description \"%s\" to \"%s\".", source, info.fileName);
    return true;
}

bool ExeFinder::nameByMenu(ExeInfo& info) const {
    if (!info.menuName.empty()) {
        info.applicationName = info.menuName;
        logger.debug(5, "ExeFinder: Menu name \"%s\" to \"%s\".", info.menuName, info.fileName);
        return true;
    }
    if (info.menuFolder.empty() || toLowerCopy(info.menuFolder) == "programs")
        return false;
    info.applicationName = info.menuFolder;
    logger.debug(5, "ExeFinder: Menu folder \"%s\" to \"%s\".", info.menuFolder, info.fileName);
    return true;
}

} // namespace Velmor
