#include "shared/library/common/errors/ConfigException.h"

#include <array>

namespace Velmor {

namespace {
// In the order of ConfigCode, from 0.
constexpr std::array<std::string_view, 2> texts{
    "Out of memory.",
    "Error in conf file.",
};
} // namespace

void ConfigException::describe(std::string& out) const {
    describeAs(out, "Configuration", texts);
}

} // namespace Velmor
