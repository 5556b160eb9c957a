#pragma once

#include <atomic>
#include <string>

#include "tarvex/export.h"

namespace tarvex::platform {

/// Log a line in the domain "Tarvex", at GLib's level "warning" or "debug"; the host decides through GLib where it
/// goes, by default to standard error and, when GLib is asked for it, to standard output. A closed stream drops the
/// line and raises no SIGPIPE. Thread-safe. `text` is one line of UTF-8 without the name of the library.
TARVEX_EXPORT void logWarning(const std::string& text) noexcept;
TARVEX_EXPORT void logDebug(const std::string& text) noexcept;

/// A warning that is logged once in the life of this object. Thread-safe.
class WarningOnce {
public:
    void log(const std::string& text) noexcept {
        if (!logged_.test_and_set()) logWarning(text);
    }

private:
    std::atomic_flag logged_;
};

/// Write one line to the process's standard output or standard error, past GLib and the host's streams: a full disk
/// does not leave those in a failed state, and a reader that went away raises no SIGPIPE. A line that cannot be written
/// is dropped. For the two lines that programs look for. Thread-safe.
TARVEX_EXPORT void writeOutputLine(std::string line) noexcept;
TARVEX_EXPORT void writeErrorLine(std::string line) noexcept;

}  // namespace tarvex::platform
