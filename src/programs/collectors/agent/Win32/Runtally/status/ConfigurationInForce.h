#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Velmor {

/// By what the collector judges at a moment: an auditor can tell the rules of any second by the hash, which a message
/// tells at the start and at each reconfiguration.
struct ConfigurationInForce {
    struct File {
        std::string path;
        uint64_t size = 0;    // bytes
        int32_t modified = 0; // seconds since 1970
        std::string sha256;
    };

    int32_t since = 0;       // seconds since 1970
    std::vector<File> files; // the configuration file first
    size_t rules = 0;
    std::string hash; // over all, as `sha256sum FILE... | sha256sum` prints it

    const std::string& file() const { return files.front().path; }
};

/// Looks at the files of a configuration that was just read; those that aren't there are left out, but the first.
ConfigurationInForce describeConfiguration(const std::vector<std::string>& paths, size_t rules);

} // namespace Velmor
