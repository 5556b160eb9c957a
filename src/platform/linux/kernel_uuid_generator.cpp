#include "platform/linux/kernel_uuid_generator.h"

#include <sys/random.h>

#include <random>
#include <span>

namespace tarvex::platform {

namespace {

void fillRandomly(std::span<std::uint8_t> bytes) {
    // Requests of up to 256 bytes are never cut short once the kernel's pool is ready.
    if (getrandom(bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size())) return;
    std::random_device device;
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(device());
}

}  // namespace

Uuid KernelUuidGenerator::makeUuid() {
    Uuid uuid;
    fillRandomly(uuid.bytes);
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);  // version 4
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);  // the variant of RFC 9562
    return uuid;
}

}  // namespace tarvex::platform
