#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tarvex::platform {

/// The numbers of one look at a light sensor.
///
/// `lux` is the light level, rounded to the nearest integer. The channels are raw numbers of the driver, without scale
/// or offset, each within the range of a 32-bit float: red, green, blue and clear of a colour sensor, otherwise the
/// whole spectrum and the infrared part. A number that the sensor lacks is 0.
struct LightReading {
    std::int64_t lux = 0;
    std::array<double, 4> channels = {};

    friend bool operator==(const LightReading&, const LightReading&) = default;
};

/// The number in the text of an attribute: decimal with a '.', whatever the locale, and white space after it. Absent
/// for everything else: empty text, a comma, a unit, a list, "nan", a number out of range.
std::optional<double> parseSensorNumber(std::string_view text);

/// The attributes that the readings of a device are made of. Drivers expose different ones:
///
/// | Reading          | Attributes, in the order of preference                                                       |
/// |------------------|-----------------------------------------------------------------------------------------------|
/// | lux              | `in_illuminance_input`; (`in_illuminance_raw` + `…_offset`) × `…_scale`; none: 0             |
/// | channels 0 to 3  | `in_intensity_{red,green,blue,clear}_raw` when the device has any of them                     |
/// | channels 0 and 1 | otherwise `in_intensity_both_raw`, else `in_intensity_raw`; and `in_intensity_ir_raw`         |
///
/// Names may carry an index (`in_illuminance0_input`): the one without an index counts first, then the lowest. A scale
/// that is missing is 1, an offset 0; either may be shared by all indexes.
class LightSensorLayout {
public:
    using Names = std::set<std::string, std::less<>>;
    using ReadNumber = std::function<std::optional<double>(const std::string& name)>;

    /// Absent when none of the names is the level or a channel of a light sensor.
    static std::optional<LightSensorLayout> of(const Names& names);

    /// True when every number of `earlier` still has its attributes: the level with its scale and offset, each channel.
    /// Otherwise the device has lost an attribute, which must not pass for one it never had.
    [[nodiscard]] bool hasAllOf(const LightSensorLayout& earlier) const;

    /// Absent when any of the layout's attributes cannot be read or does not fit: a partial reading is none.
    [[nodiscard]] std::optional<LightReading> read(const ReadNumber& number) const;

    friend bool operator==(const LightSensorLayout&, const LightSensorLayout&) = default;

private:
    using Channels = std::array<std::optional<std::string>, 4>;

    LightSensorLayout() = default;

    [[nodiscard]] std::optional<double> readLux(const ReadNumber& number) const;

    std::optional<std::string> level_;
    bool levelIsRaw_ = false;
    std::optional<std::string> offset_;
    std::optional<std::string> scale_;
    Channels channels_;
};

}  // namespace tarvex::platform
