#pragma once

#include <filesystem>
#include <set>

#include "collector/exports/export.h"

namespace tarvex::collector {

/// Writes a file for each kind into the directory, and beside them the data dictionary and SHA256SUMS. Files appear
/// whole; one that lies there already is left alone. Throws `StoreUnavailable`, `std::runtime_error`.
void exportFiles(Store& store, const std::set<Kind>& kinds, Format format, const Selection& selection,
                 const std::filesystem::path& directory);

}  // namespace tarvex::collector
