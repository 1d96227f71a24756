#pragma once

#include "shared/library/common/errors/Exception.h"

namespace Velmor {

enum FileCode : int32_t {
    FL_NONE = 0,
    FL_MEM = 1,
    FL_EXISTS_NOT = 2,
    FL_EXISTS = 3,
    FL_IS_OPEN = 4,
    FL_CANNOT_OPEN = 5,
    FL_IS_CLOSED = 6,
    FL_CANNOT_CLOSE = 7,
    FL_ACCESS_COMB = 8,
    FL_CANNOT_READ = 9,
    FL_READ = 10,
    FL_CANNOT_WRITE = 11,
    FL_WRITE = 12,
    FL_FLUSH = 13,
    FL_EOF = 14,
    FL_POSITION = 15,
    FL_CANNOT_UNLOCK = 16,
    FL_CANNOT_LOCK = 17,
    FL_IS_LOCKED = 18,
    FL_CANNOT_COPY = 19,
    FL_RENAME = 20,
    FL_REMOVE = 21,
    FL_CREATE_DIR = 22,
    FL_GET_DIR = 23,
    FL_NO_DIR = 24,
    FL_SPACE = 25,
    FL_ACCESS = 26,
    FL_ERROR = 27,
};

/// A failure of the file classes. The description is mostly the file name.
class FileException : public Exception {
public:
    using Exception::Exception;

    void describe(std::string& out) const override;
    int32_t getCategory() const override { return 47; }
};

} // namespace Velmor
