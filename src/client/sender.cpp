#include "client/sender.h"

#include <sys/utsname.h>

#include <cstring>
#include <string_view>
#include <utility>

#include "tarvex/uuid.h"

namespace tarvex {

namespace {

std::string deviceModelIdentifier() {
    utsname names{};  // stays empty where uname fails
    uname(&names);
    return {names.machine, strnlen(names.machine, sizeof names.machine)};
}

}  // namespace

std::optional<std::string> userID(platform::Platform& platform) {
    constexpr std::string_view key = "userID";
    platform::UserDefaults& defaults = platform.userDefaults();
    auto stored = defaults.durableStringForKey(key);
    if (stored && !*stored) {
        defaults.setStringIfAbsent(Uuid::random().uuidString(), key);
        stored = defaults.durableStringForKey(key);
    }
    return stored ? *stored : std::nullopt;
}

std::optional<Sender> sender(platform::Platform& platform) {
    auto userId = userID(platform);
    if (!userId) return std::nullopt;
    return Sender{.userId = std::move(*userId),
                  .device = deviceModelIdentifier(),
                  .applicationIdentifier = platform.bundles().mainBundle().bundleIdentifier().value_or("unknown")};
}

}  // namespace tarvex
