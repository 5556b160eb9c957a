#include "storage/fatal_stop.h"

#include <cstdlib>

#include "tarvex/platform/diagnostics.h"

namespace tarvex {

void fatalStop(const std::string& message) {
    platform::writeErrorLine("Fatal error: " + message + ": file PersistenceController");
    std::abort();
}

}  // namespace tarvex
