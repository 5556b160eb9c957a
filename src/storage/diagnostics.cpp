#include "storage/fatal_stop.h"

#include <cstdlib>
#include <iostream>

namespace tarvex {

void fatalStop(const std::string& message) {
    std::cerr << "Fatal error: " + message + ": file PersistenceController\n" << std::flush;
    std::abort();
}

}  // namespace tarvex
