#pragma once

#include "collector/configuration/configuration.h"

namespace tarvex::collector {

/// Receives documents, and shows the page, until SIGTERM or SIGINT; SIGHUP reads the certificates again. Finishes the
/// imports in hand. Returns the process's exit code. Throws an exception whose text says why it cannot begin.
int serve(const Configuration& configuration);

}  // namespace tarvex::collector
