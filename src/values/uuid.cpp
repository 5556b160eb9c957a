#include "tarvex/uuid.h"

#include <sys/random.h>

#include <cstddef>
#include <random>
#include <span>
#include <string_view>

namespace tarvex {

namespace {

void fillRandomly(std::span<std::uint8_t> bytes) {
    // Requests of up to 256 bytes are never cut short once the kernel's pool is ready.
    if (getrandom(bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size())) return;
    std::random_device device;
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(device());
}

}  // namespace

Uuid Uuid::random() {
    Uuid uuid;
    fillRandomly(uuid.bytes);
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);  // version 4
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);  // the variant of RFC 9562
    return uuid;
}

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
