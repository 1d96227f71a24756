// Desktop entries and lists of the package database of any bytes.

#include "FuzzFile.h"

#include "platform/linux/naming/DesktopIndex.h"
#include "platform/linux/naming/PackageIndex.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    const std::filesystem::path root = file.directory();
    const std::string& input = file.write(data, size);
    for (const char* place :
         {"usr/share/applications/cad.desktop", "var/lib/dpkg/info/cad.list", "var/lib/dpkg/status"}) {
        std::filesystem::create_directories((root / place).parent_path());
        std::filesystem::copy_file(input, root / place, std::filesystem::copy_options::overwrite_existing);
    }
    FileDescription description;
    DesktopIndex(root.string()).find("/usr/bin/cad", description);
    PackageIndex(root.string()).find("/usr/bin/cad", description);
    return 0;
}
