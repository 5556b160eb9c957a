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

/// Looks at everything that the host needs, and changes nothing of its data. Takes a moment; up to half a minute where
/// the session bus, the network and a sensor do not answer.
Findings examine(const Host& host, const Examination& examination);

}  // namespace tarvex::tool
