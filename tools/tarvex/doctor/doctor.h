#pragma once

#include <filesystem>
#include <optional>

#include "doctor/finding.h"
#include "host.h"

namespace tarvex::tool {

/// What the host measures: it needs nothing for the rest.
struct Examination {
    bool light = true;
    bool distance = true;
    std::filesystem::path sensors = "/sys/bus/iio/devices";
};

/// Looks at everything that the host needs, and changes nothing of its data. Takes a moment; about a minute at
/// most where neither a sensor, GStreamer, the session bus nor the network answers.
Findings examine(const Host& host, const Examination& examination);

}  // namespace tarvex::tool
