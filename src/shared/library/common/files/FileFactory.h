#pragma once

#include "shared/library/common/files/FileBase.h"
#include "shared/library/common/pointers/SmartPointer.h"

#include <string>

namespace Velmor {

class FileFactory {
public:
    virtual ~FileFactory() = default;

    /// The file object that fits the name, not opened: compressed if its extension is exactly "gz", else plain.
    static SmartPointer<FileBase> create(const std::string& fileName);
};

} // namespace Velmor
