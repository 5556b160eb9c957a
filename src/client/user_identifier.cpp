#include "client/user_identifier.h"

#include <string_view>

namespace tarvex {

std::string userID(platform::Platform& platform) {
    constexpr std::string_view key = "userID";
    platform::UserDefaults& defaults = platform.userDefaults();
    if (auto stored = defaults.stringForKey(key)) return *stored;
    return defaults.setStringIfAbsent(platform.uuidGenerator().makeUuid().uuidString(), key);
}

}  // namespace tarvex
