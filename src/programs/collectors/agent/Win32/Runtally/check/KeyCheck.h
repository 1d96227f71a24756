#pragma once

#include "shared/library/common/configuration/ConfReader.h"
#include "shared/library/common/errors/Findings.h"

#include <span>
#include <string_view>

namespace Velmor {

/// A key that some reader asks for, and the type that it asks for.
struct KnownKey {
    std::string_view key;
    std::string_view type;
};

/// All keys of the collector's configuration file.
std::span<const KnownKey> knownKeys();

/// Tells of entries that no reader asks for, and of values that their reader doesn't take, or takes otherwise than they
/// look. The values are judged by the gets of the configuration reader.
void checkKeys(const ConfReader& conf, const FindingSink& sink);

/// The line of a key or, if it isn't there, of the innermost section that would hold it; 1 without any.
int32_t lineOfKey(const ConfReader& conf, std::string_view key);

} // namespace Velmor
