#include "platform/linux/sensor/iio_hid_event_system.h"

#include <utility>

#include "platform/linux/host/absolute_path.h"
#include "platform/linux/sensor/iio_hid_event_system_client.h"

namespace tarvex::platform {

IioHidEventSystem::IioHidEventSystem(std::filesystem::path root) : root_(absolutePath(std::move(root))) {}

std::unique_ptr<HidEventSystemClient> IioHidEventSystem::createClient() {
    return std::make_unique<IioHidEventSystemClient>(root_);
}

}  // namespace tarvex::platform
