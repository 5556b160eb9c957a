#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tarvex::collector {

template <std::unsigned_integral Number>
Number inNetworkOrder(Number number) {
    return std::endian::native == std::endian::little ? std::byteswap(number) : number;
}

/// Appends a number, the most significant byte first.
template <std::unsigned_integral Number>
void appendNetworkOrder(std::string& bytes, Number number) {
    const Number ordered = inNetworkOrder(number);
    std::array<char, sizeof ordered> copy{};
    std::memcpy(copy.data(), &ordered, sizeof ordered);
    bytes.append(copy.data(), copy.size());
}

/// The number in eight bytes, the most significant first.
inline std::uint64_t fromNetworkOrder(std::string_view bytes) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    return inNetworkOrder(number);
}

}  // namespace tarvex::collector
