#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>

namespace tarvex::camera {

/// Which way a camera looks, as far as the system says. In the order in which cameras are taken for the user's.
enum class Facing : std::uint8_t { user, unknown, away };

/// What libcamera calls the location of a camera.
inline Facing facingOfLocation(std::string_view location) {
    if (location == "front") return Facing::user;
    return location == "back" ? Facing::away : Facing::unknown;
}

/// The last hint: a name that has "front" in it.
inline Facing facingOfName(std::string_view name) {
    constexpr std::string_view word = "front";
    const auto isSame = [](char letter, char wanted) {
        return std::tolower(static_cast<unsigned char>(letter)) == wanted;
    };
    const auto found = std::ranges::search(name, word, isSame);
    return found.empty() ? Facing::unknown : Facing::user;
}

}  // namespace tarvex::camera
