#include "storage/fatal_stop.h"

#include <cstdlib>

#include "platform/diagnostics.h"

namespace tarvex {

void fatalStop(const std::string& message) {
    platform::writeErrorLine("Fatal error: " + message + ": file PersistenceController");
    std::abort();
}

}  // namespace tarvex
