#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "tarvex/export.h"

namespace tarvex {

/// A universally unique identifier: 16 bytes in network order (RFC 9562).
struct TARVEX_EXPORT Uuid {
    std::array<std::uint8_t, 16> bytes{};

    /// The canonical text in upper case: 36 characters, groups of 8, 4, 4, 4 and 12.
    std::string uuidString() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
};

}  // namespace tarvex
