#pragma once

#include <string_view>

#include "collector/store/document.h"

namespace tarvex::collector {

/// What is kept of the identifier of a deleted participant: SHA-256 of the store's salt and the identifier.
Digest tombstoneOf(std::string_view salt, std::string_view identifier);

}  // namespace tarvex::collector
