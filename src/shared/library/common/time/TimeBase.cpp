#include "shared/library/common/time/TimeBase.h"

#include "shared/library/common/errors/TimeException.h"

#include <algorithm>

namespace Velmor {

namespace {
bool isDigitCharacter(char c) {
    return c >= '0' && c <= '9';
}
} // namespace

void TimeBase::setSeconds(int32_t seconds) {
    if (seconds < 0)
        throw TimeException(TM_DATETIME, "", __FILE__, __LINE__);
    seconds_ = seconds;
}

bool TimeBase::isDigit(std::string_view text, int32_t index) {
    if (index < 0)
        return std::all_of(text.begin(), text.end(), isDigitCharacter);
    return static_cast<size_t>(index) < text.size() && isDigitCharacter(text[static_cast<size_t>(index)]);
}

} // namespace Velmor
