#pragma once

#include <expected>
#include <filesystem>
#include <string>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// Empties a database and its log by cutting both files to nothing: the deletion for a disk that is full, where a
/// transaction finds no room for what it would write. No byte of what was stored is left, and the database is a new one
/// without tables.
///
/// Fails, and changes nothing, when any other connection has the database open, also one of this process. Does nothing
/// when `spared`, unless it is empty, is a table (quoted) that holds a row.
///
/// A process that ends between the two cuts leaves the database without its log. The records that the log held are
/// among the deleted ones; the database is whole unless a full disk had kept the log from being moved into it.
[[nodiscard]] std::expected<void, StoreError> cutToNothing(const std::filesystem::path& path, const char* vfs,
                                                           const std::string& spared);

}  // namespace tarvex::platform
