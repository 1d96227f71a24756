#pragma once

#include <iostream>
#include <sstream>
#include <string>

/// Keeps what a stream is given while it lives.
class OutputCapture {
public:
    explicit OutputCapture(std::ostream& stream) : stream_(stream), former_(stream.rdbuf(text_.rdbuf())) {}
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture() { stream_.rdbuf(former_); }

    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::ostream& stream_;
    std::streambuf* former_;
};
