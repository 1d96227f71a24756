// Process rules and module filters of any bytes.

#include "FuzzFile.h"

#include "rules/ModPollFilterChecker.h"
#include "rules/ProcessRulesChecker.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    const std::string& path = file.write(data, size);
    ProcessRulesChecker rules;
    rules.readFile(path);
    rules.isMonitored("pc17", "/usr/bin/cad");
    ModPollFilterChecker filter;
    filter.readFile(path);
    filter.isWanted("pc17", "libssl.so.3");
    return 0;
}
