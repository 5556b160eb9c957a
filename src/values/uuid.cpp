#include "tarvex/uuid.h"

#include <cstddef>

namespace tarvex {

std::string Uuid::uuidString() const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 0xFU];
    }
    return text;
}

}  // namespace tarvex
