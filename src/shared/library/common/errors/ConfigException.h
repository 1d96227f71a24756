#pragma once

#include "shared/library/common/errors/Exception.h"

namespace Velmor {

enum ConfigCode : int32_t {
    CF_MEM = 0,
    CF_CONF = 1,
};

/// A failure to read a configuration file.
class ConfigException : public Exception {
public:
    using Exception::Exception;

    void describe(std::string& out) const override;
    int32_t getCategory() const override { return 1; }
};

} // namespace Velmor
