#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// A language and code page for which a version resource has strings.
struct Translation {
    uint16_t language = 0;
    uint16_t codePage = 0;
};

/// The version information of one executable file.
class VersionResource {
public:
    virtual ~VersionResource() = default;

    /// The stated pairs, in order; empty if the resource states none.
    virtual std::vector<Translation> translations() = 0;

    /// The string under `\StringFileInfo\<language><codePage>\<name>` with its terminating zero byte, as `name`s
    /// "FileDescription", "FileVersion" and "ProductName". False if there is none.
    virtual bool string(Translation translation, std::string_view name, std::string& value) = 0;
};

class VersionResources {
public:
    virtual ~VersionResources() = default;

    /// Empty if the file can't be read or says nothing about itself.
    virtual std::unique_ptr<VersionResource> open(std::string_view path) = 0;
};

} // namespace Velmor
