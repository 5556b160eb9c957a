#pragma once

#include <string_view>

namespace tarvex::platform {

/// Whether `text` is surely a JSON object of finite numbers in its shortest layout, its names different and of
/// printable ASCII without escapes. Says yes to every sample the library writes, short of exponents; a no means that a
/// complete reader has to decide.
bool isPlainValueMap(std::string_view text);

}  // namespace tarvex::platform
