// Application mappings of any bytes.

#include "process/naming/ApplicationMappings.h"

#include <cstdint>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    ApplicationMappingsReader reader;
    for (std::string line; std::getline(lines, line) && reader.addLine(std::move(line));)
        line.clear();
    return 0;
}
