#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "tarvex/export.h"

namespace tarvex {

/// A universally unique identifier: 16 bytes in network order (RFC 9562). Reentrant.
struct TARVEX_EXPORT Uuid {
    std::array<std::uint8_t, 16> bytes{};

    /// A new random UUID (version 4, RFC 9562 section 5.4). Thread-safe, also in a process that was forked: it does not
    /// repeat its parent's.
    static Uuid random();

    /// The canonical text in upper case: 36 characters, groups of 8, 4, 4, 4 and 12.
    std::string uuidString() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
};

}  // namespace tarvex
