#include "collector/store/tombstone.h"

#include <openssl/sha.h>

#include <string>

namespace tarvex::collector {

Digest tombstoneOf(std::string_view salt, std::string_view identifier) {
    const std::string salted = std::string(salt).append(identifier);
    Digest digest{};
    SHA256(reinterpret_cast<const unsigned char*>(salted.data()), salted.size(), digest.data());
    return digest;
}

}  // namespace tarvex::collector
