#include "shared/library/common/FileFactory.h"

#include "shared/library/common/FileGZ.h"
#include "shared/library/common/FilePlain.h"
#include "shared/library/common/FileUtils.h"

namespace Velmor {

SmartPointer<FileBase> FileFactory::create(const std::string& fileName) {
    if (FileUtils::getExtension(fileName) == "gz")
        return SmartPointer<FileBase>(new FileGZ(fileName));
    return SmartPointer<FileBase>(new FilePlain(fileName));
}

} // namespace Velmor
