#pragma once

#include <cstdint>

namespace Velmor {

/// How the updates of a counter are gathered in its value.
namespace GatherMode {
constexpr int32_t last = 0;
constexpr int32_t sum = 1;
constexpr int32_t average = 2; // gathered as a sum; the reader divides
constexpr int32_t largest = 3;
constexpr int32_t smallest = 4; // the value has to start at the largest finite number
} // namespace GatherMode

/// One performance counter of one process, owned by whoever reads it.
struct OscCounter {
    uint32_t pid = 0;
    uint32_t counterId = 0; // title index
    int32_t mode = GatherMode::last;
    int32_t samples = 0; // updates taken
    double value = 0;    // gathered, in the counter's own unit
    int32_t status = 0;  // 1: the last update failed
};

} // namespace Velmor
