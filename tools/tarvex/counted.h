#pragma once

#include <cstdint>
#include <string>

namespace tarvex::tool {

/// "1 record", "2 records"; the noun is in the singular, and its plural ends in s.
inline std::string counted(std::int64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace tarvex::tool
