#include "shared/library/common/configuration/ConfReader.h"

#include "shared/library/common/configuration/ConfigurationMessages.h"
#include "shared/library/common/errors/TimeException.h"
#include "shared/library/common/files/FileUtils.h"
#include "shared/library/common/text/StringSearcher.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/LogCommons.h"
#include "shared/library/logger/Logger.h"

#include <cstdlib>

namespace Velmor {

namespace {
constexpr std::string_view dirName = "DirName";
constexpr std::string_view fileNameWord = "FileName";
constexpr std::string_view referenceBegin = "${";
constexpr int mostReferences = 100; // more means that one leads back to itself
} // namespace

ConfReader::ConfReader(const SmartPointer<LoggerCentre>& centre) : logger_(std::make_unique<Logger>()) {
    logger_->set(SmartPointer<LoggerUnit>(new LoggerUnit(centre, LogModule::configuration)));
    logger_->debug(1, "ConfReader: Created.");
}

ConfReader::~ConfReader() {
    root_.reset();
    logger_->debug(1, "ConfReader: Destroyed.");
}

const DOMNode* ConfReader::find(std::string_view key) const {
    const DOMNode* node = root_.get();
    while (node && !key.empty()) {
        const size_t point = key.find('.');
        const std::string_view name = key.substr(0, point);
        key.remove_prefix(point == std::string_view::npos ? key.size() : point + 1);
        const DOMNode* child = node->getFirstChild();
        while (child && child->getName() != name)
            child = child->getNextSibling();
        if (!child || key.empty())
            return child;
        node = child;
    }
    return nullptr;
}

int32_t ConfReader::getRaw(std::string_view key, std::string_view typeWord, std::string& text) const {
    logger_->debug(5, "ConfReader: Getting %s %s...", typeWord, key);
    const DOMNode* node = find(key);
    if (!node) {
        logger_->debug(5, "ConfReader: Not found.");
        return NOT_FOUND;
    }
    if (node->getType().empty()) {
        logger_->debug(5, "ConfReader: Found, but has no value.");
        return NO_TYPE;
    }
    if (node->getType() != typeWord) {
        logger_->debug(1, "ConfReader: Found, but type is \"%s\", not \"%s\".", node->getType(), typeWord);
        return OTHER_TYPE;
    }
    std::string value = node->getValue();
    logger_->debug(5, "ConfReader: Got raw value \"%s\".", value);
    if (const int32_t result = resolveReferences(key, value); result != FOUND)
        return result;
    if (typeWord == fileNameWord || typeWord == dirName)
        FileUtils::normalisePath(value);
    if (typeWord == dirName)
        FileUtils::addSeparator(value);
    logger_->debug(5, "ConfReader: Got final value \"%s\".", value);
    text = std::move(value);
    return FOUND;
}

int32_t ConfReader::resolveReferences(std::string_view key, std::string& text) const {
    for (int i = 0;; ++i) {
        const size_t begin = text.find(referenceBegin);
        if (begin == std::string::npos)
            return FOUND;
        const size_t end = text.find('}', begin);
        if (end == std::string::npos || i == mostReferences) {
            logger_->error(ConfigurationMessage::badReference, key);
            return BAD_REFERENCE;
        }
        const size_t nameBegin = begin + referenceBegin.size();
        std::string value;
        if (const int32_t result = resolveReference(std::string_view(text).substr(nameBegin, end - nameBegin), value);
            result != FOUND)
            return result;
        text.replace(begin, end + 1 - begin, value);
    }
}

int32_t ConfReader::resolveReference(std::string_view reference, std::string& value) const {
    const DOMNode* node = find(reference);
    if (!node) {
        logger_->debug(5, "ConfReader: Found, but reference inside value was not.");
        return NOT_FOUND;
    }
    if (node->getType().empty()) {
        logger_->debug(5, "ConfReader: Found, but reference inside value didn't have a value.");
        return NO_TYPE;
    }
    value = node->getValue();
    logger_->debug(5, "ConfReader: Reference \"%s\" = \"%s\".", reference, value);
    if (node->getType() == dirName)
        FileUtils::addSeparator(value);
    return FOUND;
}

int32_t ConfReader::getString(std::string_view key, std::string& text, bool trim, bool lowerCase) const {
    std::string value;
    if (const int32_t result = getRaw(key, "String", value); result != FOUND)
        return result;
    if (trim)
        trimBlanks(value);
    if (lowerCase)
        toLower(value);
    text = std::move(value);
    return FOUND;
}

int32_t ConfReader::getBool(std::string_view key, bool& value) const {
    std::string text;
    if (const int32_t result = getRaw(key, "Bool", text); result != FOUND)
        return result;
    if (text != "true" && text != "false")
        return BAD_BOOL;
    value = text == "true";
    return FOUND;
}

int32_t ConfReader::getInteger(std::string_view key, int32_t& value) const {
    std::string text;
    if (const int32_t result = getRaw(key, "Integer", text); result != FOUND)
        return result;
    value = toNumber(text);
    return FOUND;
}

int32_t ConfReader::getDirName(std::string_view key, std::string& text) const {
    std::string value;
    if (const int32_t result = getRaw(key, dirName, value); result != FOUND)
        return result;
    trimBlanks(value);
    text = std::move(value);
    return FOUND;
}

int32_t ConfReader::getFileName(std::string_view key, std::string& text) const {
    std::string value;
    if (const int32_t result = getRaw(key, fileNameWord, value); result != FOUND)
        return result;
    if (!FileUtils::isValidFileName(value))
        return BAD_TEXT;
    trimBlanks(value);
    text = std::move(value);
    return FOUND;
}

int32_t ConfReader::getTimeSpan(std::string_view key, TimeSpanParts& parts) const {
    std::string text;
    if (const int32_t result = getRaw(key, "TimeSpan", text); result != FOUND)
        return result;
    try {
        parts = TimeSpan::fromString(text);
        return FOUND;
    } catch (const TimeException&) {
        return BAD_TEXT;
    }
}

} // namespace Velmor
