#include "shared/library/common/files/FileFactory.h"

#include "shared/library/common/files/FileGZ.h"
#include "shared/library/common/files/FilePlain.h"
#include "shared/library/common/files/FileUtils.h"

namespace Velmor {

SmartPointer<FileBase> FileFactory::create(const std::string& fileName) {
    if (FileUtils::getExtension(fileName) == "gz")
        return SmartPointer<FileBase>(new FileGZ(fileName));
    return SmartPointer<FileBase>(new FilePlain(fileName));
}

} // namespace Velmor
