// Executables of any bytes, for what their packagers left in them.

#include "FuzzFile.h"

#include "platform/linux/naming/PackageNote.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile file;
    FileDescription description;
    readPackageNote(file.write(data, size), description);
    return 0;
}
