#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace Velmor {

/// Looks again and again until `condition` holds; false after two minutes, which a machine that is busy may need.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds pause = std::chrono::milliseconds(1)) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace Velmor
