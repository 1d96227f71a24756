// Configuration files of any bytes, and every kind of value asked of what they hold.

#include "FuzzFile.h"

#include "shared/library/common/configuration/ConfReader.h"
#include "shared/library/logger/LoggerCentre.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    ConfReader reader{SmartPointer<LoggerCentre>()};
    reader.buildDOMTree(file.write(data, size));
    for (const char* key : {"a", "a.b", "a.b.c"}) {
        std::string text;
        bool flag = false;
        int32_t number = 0;
        TimeSpanParts span;
        reader.getString(key, text, true, true);
        reader.getFileName(key, text);
        reader.getDirName(key, text);
        reader.getBool(key, flag);
        reader.getInteger(key, number);
        reader.getTimeSpan(key, span);
    }
    return 0;
}
