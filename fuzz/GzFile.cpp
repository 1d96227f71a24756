// Compressed files of any bytes.

#include "FuzzFile.h"

#include "shared/library/common/errors/FileException.h"
#include "shared/library/common/files/FileFactory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Velmor;
    static const FuzzFile input(".gz");
    const SmartPointer<FileBase> file = FileFactory::create(input.write(data, size));
    try {
        file->open(FileBase::ACCESS_READ);
        std::string line;
        for (int i = 0; i < 1000 && !file->eof(); ++i)
            file->readLine(line);
        file->close();
    } catch (const FileException&) { // NOLINT(bugprone-empty-catch): what most inputs are good for
    }
    return 0;
}
