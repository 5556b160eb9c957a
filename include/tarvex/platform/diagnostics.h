#pragma once

#include <string>

#include "tarvex/export.h"

namespace tarvex::platform {

/// Write one line to the process's standard output or standard error. The host's streams are not used, so that a full
/// disk does not leave them in a failed state, and a reader that went away raises no SIGPIPE. A line that cannot be
/// written is dropped. Thread-safe.
TARVEX_EXPORT void writeOutputLine(std::string line) noexcept;
TARVEX_EXPORT void writeErrorLine(std::string line) noexcept;

}  // namespace tarvex::platform
