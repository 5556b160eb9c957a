#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "collector/store/postgresql/network_order.h"

namespace tarvex::collector {

/// Rows in the binary format of COPY.
class BinaryCopy {
public:
    BinaryCopy() : bytes_("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19) {}

    void beginRow(std::uint16_t fields) { appendNetworkOrder(bytes_, fields); }
    void add(std::int64_t value) { addEight(static_cast<std::uint64_t>(value)); }
    void add(double value) { addEight(std::bit_cast<std::uint64_t>(value)); }
    void add(std::string_view bytes) {
        appendNetworkOrder(bytes_, static_cast<std::uint32_t>(bytes.size()));
        bytes_.append(bytes);
    }
    void end() { appendNetworkOrder(bytes_, static_cast<std::uint16_t>(-1)); }

    /// What was added since the last `clear`.
    const std::string& bytes() const { return bytes_; }
    void clear() { bytes_.clear(); }

private:
    void addEight(std::uint64_t value) {
        appendNetworkOrder(bytes_, std::uint32_t{8});
        appendNetworkOrder(bytes_, value);
    }

    std::string bytes_;
};

}  // namespace tarvex::collector
