#pragma once

#include <sys/types.h>

#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/shared/file_descriptor.h"

namespace tarvex::tool {

inline constexpr const char* storeName = "TrackingDataContainer.sqlite";
inline constexpr const char* defaultsName = "UserDefaults.sqlite";

/// The process that has the database open, 0 when the system does not name it; absent when none has. Only looks: takes
/// no lock and leaves the file as it is.
std::optional<pid_t> processThatUses(const std::filesystem::path& database);

/// Keeps a database and its log as they are, but for what is appended to the log: no process can move the log into the
/// database, begin it anew or remove it while this lives. Taking it changes no byte and no time of the files.
///
/// A host's samples are stored meanwhile; a host that opens the store waits.
class QuietDatabase {
public:
    /// One sentence when the database is not there, may not be read, or is not quiet within two seconds.
    static std::expected<QuietDatabase, std::string> hold(const std::filesystem::path& database);

    /// Copies the database, and its log where there is one, to the file of that name. One sentence on failure.
    std::expected<void, std::string> copyTo(const std::filesystem::path& target) const;

private:
    QuietDatabase(std::filesystem::path path, platform::FileDescriptor database)
        : path_(std::move(path)), database_(std::move(database)) {}

    std::filesystem::path path_;
    platform::FileDescriptor database_;
    std::optional<platform::FileDescriptor> index_;  ///< none: no process had the database open
};

}  // namespace tarvex::tool
