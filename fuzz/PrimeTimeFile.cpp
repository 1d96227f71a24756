// Prime time files of any bytes, and a moment that they classify.

#include "FuzzFile.h"

#include "rules/PrimeTime.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    primeTimeCalendar().clear();
    primeTimeCalendar().readFile(file.write(data, size));
    getClassText(DateTime(1000000000));
    return 0;
}
