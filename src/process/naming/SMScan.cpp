#include "process/naming/SMScan.h"

#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "platform/VersionResources.h"
#include "shared/library/common/files/FileOps.h"
#include "shared/library/common/text/TextUtils.h"
#include "shared/library/logger/Logger.h"

#include <optional>

namespace Velmor {

namespace {
Logger logger;

constexpr uint16_t neutralLanguage = 0;
constexpr uint16_t usEnglish = 1033;
constexpr int languageTries = 3;

/// Finds the file of a path whose leading components are the service manager's or a driver's. None if a component that
/// stands in the way has no meaning here.
std::optional<std::string> translatePath(std::string path) {
    size_t begin = 0; // of the component at hand
    while (!platform().fileSystem->findExecutable(path)) {
        const size_t end = path.find_first_of("\\/", begin + 1);
        if (end == std::string::npos)
            break;
        std::string expansion;
        if (!FileOps::expandSpecialPrefix(path.substr(begin, end - begin), expansion))
            return std::nullopt;
        path.replace(begin, end - begin, expansion);
        begin += expansion.size();
    }
    return path;
}

struct Texts {
    std::string description;
    std::string version;
    std::string product;
};

bool readTexts(VersionResource& resource, Translation translation, Texts& texts) {
    texts = {};
    resource.string(translation, "FileDescription", texts.description);
    resource.string(translation, "FileVersion", texts.version);
    resource.string(translation, "ProductName", texts.product);
    return !texts.description.empty() || !texts.product.empty();
}

/// Tries the stated language, then the neutral one, then US English.
bool readTextsInSomeLanguage(VersionResource& resource, Translation translation, Texts& texts) {
    for (int i = 0; i < languageTries; ++i) {
        if (readTexts(resource, translation, texts))
            return true;
        translation.language = translation.language > neutralLanguage ? neutralLanguage : usEnglish;
    }
    return false;
}

/// The text without blanks at its ends, and without the zero byte that its length counts.
std::string tidy(const std::string& raw) {
    std::string text = raw.substr(0, raw.empty() ? 0 : raw.size() - 1);
    trimBlanks(text);
    return text;
}
} // namespace

void SMScan::setLogger(const SmartPointer<LoggerUnit>& unit) {
    logger.set(unit);
}

bool SMScan::getFileInformation(ExeInfo& info, const std::string& path) {
    logger.debug(5, "SMScan: Getting file information...");
    const auto file = translatePath(path);
    if (!file)
        return false;
    const auto resource = platform().versionResources->open(*file);
    if (!resource)
        return false;
    for (const Translation translation : resource->translations()) {
        Texts texts;
        if (!readTextsInSomeLanguage(*resource, translation, texts))
            continue;
        info.fileDescription = tidy(texts.description);
        info.fileVersion = tidy(texts.version);
        info.productName = tidy(texts.product);
        return true;
    }
    return false;
}

} // namespace Velmor
