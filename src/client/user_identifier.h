#pragma once

#include <optional>
#include <string>

#include "tarvex/platform/platform.h"

namespace tarvex {

/// The identifier of this installation: whatever string the user defaults hold under "userID". When there is none, a
/// new random UUID is stored there first. Read afresh on every call; two first reads, also of two processes, end with
/// one identifier.
///
/// Never one that is not durable: absent while the stored one cannot be read or a new one cannot be stored.
std::optional<std::string> userID(platform::Platform& platform);

}  // namespace tarvex
