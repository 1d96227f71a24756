#pragma once

#include <cstdint>

/// The numbers of the catalogue `configuration`, in its order; the wording stands in `configuration.mess`.
namespace Velmor::ConfigurationMessage {

enum : int32_t {
    fileUnreadable = 1,
    fileMistake = 2,
    badReference = 3,
    buildDropped = 15,
};

} // namespace Velmor::ConfigurationMessage
