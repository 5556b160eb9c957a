#pragma once

#include <filesystem>
#include <memory>

#include "collector/store/store.h"

namespace tarvex::collector {

/// Opens the file, and makes it where there is none, in a directory that is there. `vfs`: what SQLite reaches its files
/// through; its own without one. Throws `StoreUnavailable`.
std::unique_ptr<Store> openSqliteStore(const std::filesystem::path& file, const char* vfs = nullptr);

}  // namespace tarvex::collector
