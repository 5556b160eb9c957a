#pragma once

#include <filesystem>

#include "tarvex/platform/hid_event_system.h"

namespace tarvex::platform {

/// The event system on the kernel's industrial I/O tree, whose services are the light sensors `iio:deviceN` below a
/// root directory.
class IioHidEventSystem final : public HidEventSystem {
public:
    explicit IioHidEventSystem(std::filesystem::path root = "/sys/bus/iio/devices");

    [[nodiscard]] std::unique_ptr<HidEventSystemClient> createClient() override;

private:
    std::filesystem::path root_;
};

}  // namespace tarvex::platform
