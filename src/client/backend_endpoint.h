#pragma once

#include <string_view>

namespace tarvex {

/// Where samples are posted to. The host is fixed when the library is built.
inline constexpr std::string_view backendEndpoint = "https://" TARVEX_BACKEND_HOST "/tracking";

}  // namespace tarvex
