#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// The directory in which the host's data lie: the store of its records and its user defaults.
///
/// It is the one that the host has chosen, else $XDG_DATA_HOME/<name>, where the name is the identifier of the host's
/// bundle, else the name of its executable, written as a safe file name. While the host's property list is there but
/// cannot be read, the name that was used last stays in use: $XDG_DATA_HOME/tarvex/hosts remembers it.
///
/// The directory is created for this user alone. One that exists already is closed to others, but for one that the host
/// chose and filled itself. Thread-safe.
class DataDirectory {
public:
    /// `bundles` must outlive the first call of `path`.
    DataDirectory(std::optional<std::filesystem::path> chosen, const Bundles& bundles);

    /// Decided on the first call, the same ever after. Every call creates the directory where it is missing, which a
    /// person may have removed since; when it could not be created, whoever opens a file in it will learn.
    const std::filesystem::path& path();

private:
    std::filesystem::path resolve() const;
    std::string hostName(const std::filesystem::path& dataHome) const;

    std::optional<std::filesystem::path> chosen_;
    const Bundles& bundles_;
    std::once_flag resolved_;
    std::filesystem::path path_;
};

}  // namespace tarvex::platform
