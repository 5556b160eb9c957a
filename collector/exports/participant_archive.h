#pragma once

#include "collector/exports/export.h"

namespace tarvex::collector {

/// Writes everything that is kept of a participant as a ZIP archive: each type as CSV, and the data dictionary. In
/// constant memory. Throws `StoreUnavailable`, `std::runtime_error`, and what the sink throws.
void archiveParticipant(Store& store, const std::string& participant, const Sink& sink);

}  // namespace tarvex::collector
