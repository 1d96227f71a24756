// The family's values of any bytes.

#include "FuzzFile.h"

#include "platform/linux/family/LinuxRegistry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    setenv("VELMOR_RESOURCES", file.write(data, size).c_str(), 1);
    setenv("VELMOR_STATE_DIR", (file.directory() + "/state").c_str(), 1);
    LinuxRegistry registry;
    std::string text;
    uint32_t type = 0;
    uint32_t error = 0;
    registry.isReadable(text);
    registry.read("InstallDir", type, text, error);
    return 0;
}
