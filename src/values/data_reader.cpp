#include "tarvex/data_reader.h"

#include <cstdint>
#include <limits>

namespace tarvex {

DataReader DataReader::distance(std::optional<std::int64_t> refreshRate) noexcept {
    return {Kind::distance, refreshRate};
}

DataReader DataReader::ambientLight(std::optional<std::int64_t> refreshRate) noexcept {
    return {Kind::ambientLight, refreshRate};
}

std::string_view DataReader::id() const noexcept {
    return kind_ == Kind::distance ? "distance" : "ambient_light";
}

std::string_view DataReader::description() const noexcept {
    return kind_ == Kind::distance ? "Distance" : "Ambient Light";
}

}  // namespace tarvex

std::size_t std::hash<tarvex::DataReader>::operator()(const tarvex::DataReader& reader) const noexcept {
    const std::size_t kind = std::hash<int>{}(static_cast<int>(reader.kind()));
    const std::size_t rate = std::hash<std::optional<std::int64_t>>{}(reader.refreshRate());
    // Spreads neighbouring rates: the first digits of the golden ratio's fraction, as many as there are.
    constexpr int unused = 64 - std::numeric_limits<std::size_t>::digits;
    constexpr auto goldenRatio = static_cast<std::size_t>(std::uint64_t{0x9E3779B97F4A7C15} >> unused);
    return (rate ^ kind) * goldenRatio;
}
