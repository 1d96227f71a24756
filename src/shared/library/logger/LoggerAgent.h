#pragma once

#include <string>
#include <string_view>

namespace Velmor {

/// A destination of finished log lines.
class LoggerAgent {
public:
    virtual ~LoggerAgent() = default;

    /// A text that names the destination.
    virtual std::string describe() = 0;

    /// Writes one finished line, given without its end. False if it was lost.
    virtual bool write(std::string_view text) = 0;
};

} // namespace Velmor
