#pragma once

#include <string>

namespace tarvex {

/// Ends the process because the record store cannot work: one diagnostic on standard error, then an abort.
[[noreturn]] void fatalStop(const std::string& message);

}  // namespace tarvex
