#include "shared/library/common/errors/JobException.h"

#include <array>

namespace Velmor {

namespace {
// In the order of JobCode, from 0.
constexpr std::array<std::string_view, 9> texts{
    "No exception!",
    "The job was never started. execute() missing or failed",
    "Unable to start the job. Consult OS error code for more details.",
    "Unable to terminate the job. Consult OS error code for more details.",
    "The job is still running. This is not compatible with this method.",
    "An unknown error occured. Consult OS error code and contact developer.",
    "Out of memory.",
    "Unable to access external process.",
    "Unable to access thread in external process.",
};
} // namespace

void JobException::describe(std::string& out) const {
    describeAs(out, "Job", texts);
}

} // namespace Velmor
