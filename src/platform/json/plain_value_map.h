#pragma once

#include <string_view>

namespace tarvex::platform {

/// True when `text` is surely a JSON object of finite numbers in its shortest layout, its names different and of
/// printable ASCII without escapes. True for every sample the library writes, short of exponents; otherwise a complete
/// reader must decide.
bool isPlainValueMap(std::string_view text);

}  // namespace tarvex::platform
