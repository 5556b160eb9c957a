#pragma once

#include <algorithm>
#include <string_view>

namespace tarvex::platform {

/// What a string among the user defaults says when it is read as a bool: see `UserDefaults::boolForKey`.
inline bool isTrue(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
    text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
    return !text.empty() && std::string_view("YyTt123456789").contains(text.front());
}

}  // namespace tarvex::platform
