#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <string>

namespace tarvex::tool {

struct Recovery {
    std::int64_t records = 0;  ///< that the new store holds
    bool isWhole = false;      ///< nothing in the old one was damaged
};

/// Writes what the store in the directory still holds into a new store. The records of a damaged one are read from its
/// beginning up to the damage, and from its end back to it. The old one stays as it is.
///
/// One sentence, and no new file, when a process has the store open, it holds no records' table that can be read, or
/// there is anything under the new name or it is in the data directory.
std::expected<Recovery, std::string> recover(const std::filesystem::path& dataDirectory,
                                             const std::filesystem::path& newStore);

}  // namespace tarvex::tool
