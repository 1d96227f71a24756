#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace Velmor {

/// Looks again and again until `condition` holds; false after half a minute.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds pause = std::chrono::milliseconds(1)) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace Velmor
