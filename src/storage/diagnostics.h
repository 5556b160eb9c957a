#pragma once

#include <string>

namespace tarvex {

/// Ends the process because the record store cannot work: one diagnostic on standard error, then an abort.
[[noreturn]] void fatalStop(const std::string& message);

/// Writes one line to the process's standard output. The host's streams are not used, so that a full disk does not
/// leave them in a failed state, and a reader that went away raises no SIGPIPE. A line that cannot be written is
/// dropped.
void printLine(std::string line) noexcept;

}  // namespace tarvex
