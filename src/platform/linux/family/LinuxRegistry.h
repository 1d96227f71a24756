#pragma once

#include "platform/Registry.h"

#include <map>
#include <mutex>
#include <sys/stat.h>

namespace Velmor {

/// The family's values in two TOML files: the administrator's, which is only read, and that of the state directory,
/// which the programs write and which wins. A file is read again when it has changed.
class LinuxRegistry : public Registry {
public:
    bool isReadable(std::string& cause) override;
    std::vector<RegistryEntry> survey(std::string& file) override;
    bool read(std::string_view name, uint32_t& type, std::string& data, uint32_t& error) override;
    bool writeText(std::string_view name, std::string_view text, uint32_t& error) override;

private:
    struct Value {
        uint32_t type = 0;
        std::string data;
    };
    using Values = std::map<std::string, Value, std::less<>>;

    /// A file's values and the state of the file that they were read from.
    struct Source {
        Values values;
        struct stat state {};
        std::string path;
        std::string problem;                // why it can't be read; empty if it can
        std::vector<RegistryEntry> entries; // in no order
        bool isMissing = false;
    };

    static void refresh(Source& source, const std::string& path);
    static void parse(Source& source);
    const Value* find(std::string_view name);

    std::mutex mutex_; // guards both
    Source administrators_;
    Source written_;
};

} // namespace Velmor
