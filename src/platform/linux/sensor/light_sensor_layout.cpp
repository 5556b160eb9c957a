#include "platform/linux/sensor/light_sensor_layout.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace tarvex::platform {

namespace {

constexpr std::string_view illuminance = "in_illuminance";
constexpr std::string_view intensity = "in_intensity";
constexpr long noIndex = -1;

/// The index in `name` when it reads `prefix`, an index or none, `suffix`.
std::optional<long> indexIn(std::string_view name, std::string_view prefix, std::string_view suffix) {
    if (!name.starts_with(prefix) || !name.ends_with(suffix) || name.size() < prefix.size() + suffix.size())
        return std::nullopt;
    const std::string_view digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.empty()) return noIndex;
    long index = 0;
    const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc{} || rest != digits.data() + digits.size() || index < 0) return std::nullopt;
    return index;
}

/// The name without an index, else the one with the lowest; empty when there is none.
std::string firstName(const LightSensorLayout::Names& names, std::string_view prefix, std::string_view suffix) {
    std::string first;
    std::optional<long> lowest;
    for (const std::string& name : names) {
        const auto index = indexIn(name, prefix, suffix);
        if (!index || (lowest && *lowest <= *index)) continue;
        first = name;
        lowest = index;
    }
    return first;
}

/// The attribute of the same index as `raw`, else the one that all of them share; empty when there is neither.
std::string companion(const LightSensorLayout::Names& names, std::string_view raw, std::string_view suffix) {
    raw.remove_suffix(std::string_view("_raw").size());
    for (const std::string_view base : {raw, illuminance})
        if (std::string name = std::string(base).append(suffix); names.contains(name)) return name;
    return {};
}

bool fitsFloat(double number) {
    return std::abs(number) <= double{std::numeric_limits<float>::max()};
}

std::intptr_t nearestInteger(double number) {
    using Limits = std::numeric_limits<std::intptr_t>;
    const double rounded = std::round(number);
    if (rounded >= static_cast<double>(Limits::max())) return Limits::max();
    if (rounded <= static_cast<double>(Limits::min())) return Limits::min();
    return static_cast<std::intptr_t>(rounded);
}

}  // namespace

std::optional<LightSensorLayout> LightSensorLayout::of(const Names& names) {
    LightSensorLayout layout;
    layout.level_ = firstName(names, illuminance, "_input");
    if (layout.level_.empty()) {
        layout.level_ = firstName(names, illuminance, "_raw");
        layout.levelIsRaw_ = !layout.level_.empty();
    }
    if (layout.levelIsRaw_) {
        layout.offset_ = companion(names, layout.level_, "_offset");
        layout.scale_ = companion(names, layout.level_, "_scale");
    }
    const std::array<std::string, 4> none;
    layout.channels_ = {firstName(names, intensity, "_red_raw"), firstName(names, intensity, "_green_raw"),
                        firstName(names, intensity, "_blue_raw"), firstName(names, intensity, "_clear_raw")};
    if (layout.channels_ == none) {
        const std::string both = firstName(names, intensity, "_both_raw");
        layout.channels_[0] = both.empty() ? firstName(names, intensity, "_raw") : both;
        layout.channels_[1] = firstName(names, intensity, "_ir_raw");
    }
    if (layout.level_.empty() && layout.channels_ == none) return std::nullopt;
    return layout;
}

std::optional<LightReading> LightSensorLayout::read(const ReadNumber& number) const {
    const auto lux = readLux(number);
    if (!lux || std::isnan(*lux)) return std::nullopt;
    LightReading reading = {nearestInteger(*lux), {}};
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        if (channels_[i].empty()) continue;
        const auto channel = number(channels_[i]);
        if (!channel || !fitsFloat(*channel)) return std::nullopt;
        reading.channels[i] = *channel;
    }
    return reading;
}

std::optional<double> LightSensorLayout::readLux(const ReadNumber& number) const {
    if (level_.empty()) return 0;
    const auto level = number(level_);
    if (!level || !levelIsRaw_) return level;
    const auto offset = offset_.empty() ? std::optional(0.0) : number(offset_);
    const auto scale = scale_.empty() ? std::optional(1.0) : number(scale_);
    if (!offset || !scale) return std::nullopt;
    return (*level + *offset) * *scale;
}

}  // namespace tarvex::platform
