#pragma once

#include "collector/configuration/configuration.h"

namespace tarvex::collector {

/// Receives documents, and shows the page, until SIGTERM or SIGINT; SIGHUP reads the certificates and the page's token
/// again. Finishes the imports in hand. Where `announcement` is not empty, files in that directory say where, as
/// `Announcement` has it. Returns the process's exit code. Throws an exception whose text says why it cannot begin.
int serve(const Configuration& configuration, const std::filesystem::path& announcement = {});

}  // namespace tarvex::collector
