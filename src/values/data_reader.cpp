#include "tarvex/data_reader.h"

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
    constexpr std::size_t goldenRatio = 0x9E3779B97F4A7C15;  // spreads neighbouring rates
    return (rate ^ kind) * goldenRatio;
}
