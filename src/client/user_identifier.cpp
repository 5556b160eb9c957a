#include "client/user_identifier.h"

#include <string_view>

#include "tarvex/uuid.h"

namespace tarvex {

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

}  // namespace tarvex
