#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::platform {

/// The number that an attribute file of the kernel's sensor tree holds: decimal with a '.', whatever the locale, and
/// white space after it. Absent for everything else: empty text, a comma, a unit, a list, "nan", a number out of range.
std::optional<double> parseSensorNumber(std::string_view text);

/// Reads the number of an attribute of the open directory `device` from the file as it is now; absent when it cannot be
/// read, is no regular file, or holds no number. May block for as long as the sensor's driver takes.
std::optional<double> readSensorNumber(int device, const std::string& name);

}  // namespace tarvex::platform
