#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Velmor {

/// A place in the source: the file's name up to and with its last point, and the line.
struct SourcePosition {
    std::string file;
    int32_t line = 0;
};

/// A failure that crosses a function boundary: a number within its class, an optional detail text, and the trail of
/// source positions that it passed, the innermost first.
class Exception {
public:
    explicit Exception(int32_t code) : code_(code) {}
    Exception(int32_t code, std::string description, std::string_view file, int32_t line);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    virtual ~Exception() = default;

    /// The one-line message: label, text of the code, code text.
    virtual void describe(std::string& out) const;
    /// The number of the class.
    virtual int32_t getCategory() const { return 50; }

    int32_t getCode() const { return code_; }
    const std::string& getDescription() const { return description_; }
    const std::vector<SourcePosition>& getPositions() const { return positions_; }

    /// "category.code".
    void getCodeText(std::string& out) const;
    std::string getCodeText() const;

    /// The one-line message, then the description and the trail, each on a line of its own if there is any.
    void getFullDescription(std::string& out) const;
    std::string getFullDescription() const;

    /// Adds a position to the trail; a handler that passes the exception on gives its own `__FILE__` and `__LINE__`.
    /// An empty `file` adds nothing.
    void addPosition(std::string_view file, int32_t line);

protected:
    /// `describe` of a class with the `label` and the `texts` of its codes from 0 on.
    void describeAs(std::string& out, std::string_view label, std::span<const std::string_view> texts) const;

private:
    int32_t code_;
    std::vector<SourcePosition> positions_;
    std::string description_; // often a file name or the system's error text
};

} // namespace Velmor
