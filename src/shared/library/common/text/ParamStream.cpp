#include "shared/library/common/text/ParamStream.h"

#include <sstream>

namespace Velmor {

ParamStream& ParamStream::operator<<(std::string_view value) {
    text_ += textLetter;
    text_ += value;
    if (value.empty() || value.back() != separator)
        text_ += separator;
    return *this;
}

ParamStream& ParamStream::operator<<(double value) {
    std::ostringstream stream; // the six significant digits that readers of the log know
    stream << value;
    return addNumber(stream.str());
}

ParamStream& ParamStream::addNumber(std::string_view value) {
    text_ += numberLetter;
    text_ += value;
    text_ += separator;
    return *this;
}

} // namespace Velmor
