#include "shared/library/common/files/FileUtils.h"

#include "platform/Platform.h"
#include "shared/library/common/files/FileOps.h"

namespace Velmor {

namespace {
constexpr std::string_view separators = "\\/";
constexpr char systemSeparator = '\\';

bool isSeparator(char c) {
    return separators.find(c) != std::string_view::npos;
}
} // namespace

bool FileUtils::move(std::string_view from, std::string_view to, bool replace) {
    return FileOps::move(from, to, replace);
}

bool FileUtils::copy(std::string_view from, std::string_view to, bool overwrite) {
    return FileOps::copy(from, to, overwrite);
}

bool FileUtils::readForeign(std::string_view path, size_t mostBytes, std::string& text) {
    uint32_t error = 0;
    const auto file = platform().fileSystem->openFile(path, OpenMode::readRegular, error);
    if (!file)
        return false;
    std::string read(mostBytes + 1, '\0');
    size_t length = 0;
    size_t count = 0;
    do {
        if (!file->read(read.data() + length, read.size() - length, count, error))
            return false;
        length += count;
    } while (count > 0 && length <= mostBytes);
    if (length > mostBytes)
        return false;
    text = read.substr(0, length);
    return true;
}

uint32_t FileUtils::getFileSize(std::string_view path) {
    FileInfo info;
    FileOps::getInfo(path, info);
    return info.exists ? info.sizeLow : 0;
}

void FileUtils::addSeparator(std::string& text) {
    if (!text.empty() && !isSeparator(text.back()))
        text += systemSeparator;
}

void FileUtils::normalisePath(std::string& text) {
    if (text.size() < 2)
        return;
    std::string normal(1, text.front());
    for (size_t i = 1; i < text.size(); ++i) {
        if (!isSeparator(text[i]))
            normal += text[i];
        else if (i == 1 || !isSeparator(text[i - 1]))
            normal += systemSeparator;
    }
    text = std::move(normal);
}

std::string FileUtils::getExtension(std::string_view path) {
    const size_t point = path.rfind('.');
    return point == std::string_view::npos ? std::string() : std::string(path.substr(point + 1));
}

std::string FileUtils::stripExtension(std::string& path) {
    const size_t point = path.rfind('.');
    if (point == std::string::npos)
        return {};
    std::string extension = path.substr(point + 1);
    path.resize(point);
    return extension;
}

void FileUtils::stripSeparators(std::string& path) {
    while (path.size() > 1 && isSeparator(path.back()))
        path.pop_back();
}

std::string FileUtils::getDirectory(std::string_view path) {
    const size_t separator = path.find_last_of(separators);
    return separator == std::string_view::npos ? std::string() : std::string(path.substr(0, separator + 1));
}

std::string FileUtils::getBaseName(std::string_view path) {
    const size_t separator = path.find_last_of(separators);
    return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

bool FileUtils::remove(std::string_view path, bool force) {
    FileInfo info;
    FileOps::getInfo(path, info);
    if (!info.exists)
        return false;
    if (force ? !FileOps::setAttributes(path, InfoAttribute::normal) : (info.attributes & InfoAttribute::readOnly) != 0)
        return false;
    return FileOps::deleteFile(path);
}

bool FileUtils::isValidFileName(std::string_view text) {
    return text.empty() || (text.find_first_of("?*") == std::string_view::npos && !isSeparator(text.back()));
}

bool FileUtils::makeDirectories(std::string_view path) {
    if (path.empty())
        return true;
    std::string directory = getDirectory(path);
    stripSeparators(directory);
    if (FileOps::exists(directory))
        return true;
    if (directory.empty() || directory == path)
        return false; // a bare name has no directory that could be made
    const bool parentStands = getDirectory(directory).empty() || makeDirectories(directory);
    return parentStands && FileOps::makeDirectory(directory);
}

} // namespace Velmor
