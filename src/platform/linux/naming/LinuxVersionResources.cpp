#include "platform/linux/naming/LinuxVersionResources.h"

#include "platform/linux/base/SystemText.h"
#include "platform/linux/files/NativePath.h"
#include "platform/linux/naming/PackageNote.h"
#include "platform/linux/threads/Checkpoint.h"

namespace Velmor {

namespace {
constexpr Translation usEnglish{1033, 1200};

class Resource : public VersionResource {
public:
    explicit Resource(FileDescription description) : description_(std::move(description)) {}

    std::vector<Translation> translations() override { return {usEnglish}; }

    bool string(Translation translation, std::string_view name, std::string& value) override {
        if (translation.language != usEnglish.language)
            return false;
        if (name == "FileDescription")
            return give(description_.description, value);
        if (name == "ProductName")
            return give(description_.product, value);
        return name == "FileVersion" && give(description_.version, value);
    }

private:
    static bool give(const std::string& text, std::string& value) {
        if (text.empty())
            return false;
        value = text;
        maskControlBytes(value);
        value += '\0';
        return true;
    }

    FileDescription description_;
};

} // namespace

std::unique_ptr<VersionResource> LinuxVersionResources::open(std::string_view path) {
    checkpoint();
    const std::string file = findIgnoringCase(toNativePath(path)); // looked-up paths come in lower case
    FileDescription description;
    if (file.empty())
        return nullptr;
    if (!readPackageNote(file, description)) {
        const ServiceLock lock(mutex_);
        // A desktop entry tells only what the program is called; of its product and version the package knows.
        const bool hasEntry = desktop_.find(file, description);
        if (!packages_.find(file, description) && !hasEntry)
            return nullptr;
    }
    return std::make_unique<Resource>(std::move(description));
}

} // namespace Velmor
