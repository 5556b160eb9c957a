#include "platform/iio/light_sensor_layout.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

namespace tarvex::platform {

namespace {

constexpr std::string_view illuminance = "in_illuminance";
constexpr std::string_view intensity = "in_intensity";

/// The place of an attribute among those of one kind: the name without an index comes before all with one.
struct Place {
    std::optional<unsigned long> index;
    friend auto operator<=>(const Place&, const Place&) = default;
};

/// Absent unless `name` reads `prefix`, an index or none, `suffix`.
std::optional<Place> placeOf(std::string_view name, std::string_view prefix, std::string_view suffix) {
    if (!name.starts_with(prefix) || !name.ends_with(suffix) || name.size() < prefix.size() + suffix.size())
        return std::nullopt;
    const std::string_view digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.empty()) return Place();
    unsigned long index = 0;
    const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), index);
    if (error != std::errc{} || rest != digits.data() + digits.size()) return std::nullopt;
    return Place{index};
}

/// The name without an index, else the one with the lowest.
std::optional<std::string> firstName(const LightSensorLayout::Names& names, std::string_view prefix,
                                     std::string_view suffix) {
    std::optional<std::string> first;
    std::optional<Place> lowest;
    for (const std::string& name : names) {
        const auto place = placeOf(name, prefix, suffix);
        if (!place || (lowest && *lowest <= *place)) continue;
        first = name;
        lowest = place;
    }
    return first;
}

/// The attribute of the same index as `raw`, else the one that all of them share.
std::optional<std::string> companion(const LightSensorLayout::Names& names, std::string_view raw,
                                     std::string_view suffix) {
    raw.remove_suffix(std::string_view("_raw").size());
    for (const std::string_view base : {raw, illuminance})
        if (std::string name = std::string(base).append(suffix); names.contains(name)) return name;
    return std::nullopt;
}

bool fitsFloat(double number) {
    return std::abs(number) <= double{std::numeric_limits<float>::max()};
}

/// Absent for a number that is infinite or outside the range, and for NaN.
std::optional<std::int64_t> nearestInteger(double number) {
    constexpr double limit = 0x1p63;  // the first that is too large; its negative is the smallest that fits
    const double rounded = std::round(number);
    if (std::isnan(rounded) || rounded < -limit || rounded >= limit) return std::nullopt;
    return static_cast<std::int64_t>(rounded);
}

}  // namespace

std::optional<double> parseSensorNumber(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string_view::npos) return std::nullopt;
    text = text.substr(0, last + 1);
    double number = 0;
    const auto [rest, error] = std::from_chars(text.begin(), text.end(), number);
    if (error != std::errc{} || rest != text.end() || !std::isfinite(number)) return std::nullopt;
    return number;
}

std::optional<LightSensorLayout> LightSensorLayout::of(const Names& names) {
    LightSensorLayout layout;
    layout.level_ = firstName(names, illuminance, "_input");
    if (!layout.level_) {
        layout.level_ = firstName(names, illuminance, "_raw");
        layout.levelIsRaw_ = layout.level_.has_value();
    }
    if (layout.levelIsRaw_) {
        layout.offset_ = companion(names, *layout.level_, "_offset");
        layout.scale_ = companion(names, *layout.level_, "_scale");
    }
    const Channels none;
    layout.channels_ = {firstName(names, intensity, "_red_raw"), firstName(names, intensity, "_green_raw"),
                        firstName(names, intensity, "_blue_raw"), firstName(names, intensity, "_clear_raw")};
    if (layout.channels_ == none) {
        const auto both = firstName(names, intensity, "_both_raw");
        layout.channels_[0] = both ? both : firstName(names, intensity, "_raw");
        layout.channels_[1] = firstName(names, intensity, "_ir_raw");
    }
    if (!layout.level_ && layout.channels_ == none) return std::nullopt;
    return layout;
}

bool LightSensorLayout::hasAllOf(const LightSensorLayout& earlier) const {
    if (earlier.level_ && !level_) return false;
    if (levelIsRaw_ && ((earlier.offset_ && !offset_) || (earlier.scale_ && !scale_))) return false;
    return std::ranges::equal(earlier.channels_, channels_,
                              [](const auto& before, const auto& now) { return now || !before; });
}

std::optional<LightReading> LightSensorLayout::read(const ReadNumber& number) const {
    const auto lux = readLux(number).and_then(nearestInteger);
    if (!lux) return std::nullopt;
    LightReading reading = {*lux, {}};
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const auto& name = channels_[i];
        if (!name) continue;
        const auto channel = number(*name);
        if (!channel || !fitsFloat(*channel)) return std::nullopt;
        reading.channels[i] = *channel;
    }
    return reading;
}

std::optional<double> LightSensorLayout::readLux(const ReadNumber& number) const {
    if (!level_) return 0;
    const auto level = number(*level_);
    if (!level || !levelIsRaw_) return level;
    const auto offset = offset_ ? number(*offset_) : 0;
    const auto scale = scale_ ? number(*scale_) : 1;
    if (!offset || !scale) return std::nullopt;
    return (*level + *offset) * *scale;
}

}  // namespace tarvex::platform
