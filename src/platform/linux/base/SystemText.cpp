#include "platform/linux/base/SystemText.h"

#include <algorithm>

namespace Velmor {

void maskControlBytes(std::string& text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
}

} // namespace Velmor
