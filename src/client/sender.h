#pragma once

#include <optional>
#include <string>

#include "storage/tracking_data.h"
#include "tarvex/platform/platform.h"

namespace tarvex {

/// The identifier of this installation: whatever string the user defaults hold under "userID". When there is none, a
/// new random UUID is stored there first. Read afresh on every call; two first reads, also of two processes, end with
/// one identifier.
///
/// Never one that is not durable: absent while the stored one cannot be read or a new one cannot be stored.
/// Thread-safe.
std::optional<std::string> userID(platform::Platform& platform);

/// The sender of a document that is assembled now: `userID`, the kernel's name for the machine's hardware (empty when
/// unknown), and the bundle identifier of the host ("unknown" without one). Absent without a user identifier.
/// Thread-safe.
std::optional<Sender> sender(platform::Platform& platform);

}  // namespace tarvex
