// Data files of any bytes.

#include "programs/runtallyctl/UsageFile.h"

#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
    readUsageFile(input);
    return 0;
}
