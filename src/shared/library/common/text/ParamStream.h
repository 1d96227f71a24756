#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace Velmor {

/// The typed parameters of a message: for each a type letter, the value as text, and the byte 0x1A.
class ParamStream {
public:
    static constexpr char separator = '\x1a';
    static constexpr char textLetter = 's';
    static constexpr char numberLetter = 'n';

    virtual ~ParamStream() = default;

    ParamStream& operator<<(std::string_view value);
    ParamStream& operator<<(const char* value) { return *this << std::string_view(value); }
    ParamStream& operator<<(const std::string& value) { return *this << std::string_view(value); }
    ParamStream& operator<<(double value);
    template <std::integral Number>
    ParamStream& operator<<(Number value) {
        return addNumber(std::to_string(value));
    }

    const std::string& getText() const { return text_; }

private:
    ParamStream& addNumber(std::string_view value);

    std::string text_;
};

} // namespace Velmor
