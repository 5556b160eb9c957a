#include "platform/iio/iio_hid_event_system.h"

#include <utility>

#include "platform/iio/iio_hid_event_system_client.h"
#include "platform/shared/absolute_path.h"

namespace tarvex::platform {

IioHidEventSystem::IioHidEventSystem(std::filesystem::path root) : root_(absolutePath(std::move(root))) {}

std::unique_ptr<HidEventSystemClient> IioHidEventSystem::createClient() {
    return std::make_unique<IioHidEventSystemClient>(root_);
}

}  // namespace tarvex::platform
