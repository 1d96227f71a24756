#include "platform/linux/base/SystemText.h"

#include <algorithm>

namespace Velmor {

void maskControlBytes(std::string& text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
}

std::string_view withoutDeletedMark(std::string_view path) {
    return path.substr(0, path.size() - (path.ends_with(deletedMark) ? deletedMark.size() : 0));
}

} // namespace Velmor
