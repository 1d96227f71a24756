#include "programs/collectors/agent/Win32/Runtally/status/ConfigurationInForce.h"

#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Platform.h"
#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/errors/Findings.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/text/Sha256.h"

namespace Velmor {

namespace {
/// The bytes of a file; none if it can't be read.
std::string bytesOf(const std::string& path) {
    std::string text;
    try {
        FilePlain file(path);
        file.open(FileBase::ACCESS_READ);
        constexpr size_t atOnce = 65536;
        for (std::string part; !file.eof(); text += part)
            file.read(part, atOnce);
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): whoever needs the file has told of it
    }
    return text;
}
} // namespace

ConfigurationInForce describeConfiguration(const std::vector<std::string>& paths, size_t rules) {
    ConfigurationInForce configuration;
    configuration.since = platform().clock->now();
    configuration.rules = rules;
    std::string sums;
    for (const std::string& path : paths) {
        FoundFile found;
        uint32_t error = 0;
        const bool isThere = !path.empty() && platform().fileSystem->find(path, found, error);
        if (!isThere && !configuration.files.empty())
            continue;
        ConfigurationInForce::File file{shownPath(path), found.size, static_cast<int32_t>(found.modified),
                                        sha256(bytesOf(path))};
        sums += file.sha256 + "  " + file.path + "\n";
        configuration.files.push_back(std::move(file));
    }
    configuration.hash = sha256(sums);
    return configuration;
}

} // namespace Velmor
