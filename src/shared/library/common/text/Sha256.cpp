#include "shared/library/common/text/Sha256.h"

#include <array>
#include <cstdint>
#include <sys/types.h>

#include <sha2.h>

namespace Velmor {

std::string sha256(std::string_view bytes) {
    SHA2_CTX context{};
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    std::array<char, SHA256_DIGEST_STRING_LENGTH> digits{};
    return SHA256End(&context, digits.data());
}

} // namespace Velmor
