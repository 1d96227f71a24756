#pragma once

#include "shared/library/common/errors/Exception.h"

namespace Velmor {

enum IPCCode : int32_t {
    IC_NONE = 0,
    IC_NO_MESSAGE_FILE = 1,
    IC_CANNOT_CREATE_COMM = 2,
    IC_NOT_SENDER = 3,
    IC_NOT_RECEIVER = 4,
    IC_CANNOT_SEND = 5,
    IC_CANNOT_RECEIVE = 6,
    IC_MEM = 7,
};

/// A failure of the message channel between programs.
class IPCException : public Exception {
public:
    using Exception::Exception;

    void describe(std::string& out) const override;
    int32_t getCategory() const override { return 4; }
};

} // namespace Velmor
