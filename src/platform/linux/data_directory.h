#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// A name for a file or directory that stands for `text` and for no other text: bytes other than letters, digits, '.',
/// '-' and '_', and a leading '.', become %XX. A name that would be longer than 143 bytes, the least that a file system
/// in common use allows, is cut and ends in '~' and a digest. Empty for an empty text only.
std::string safeFileName(std::string_view text);

/// The directory that holds those of all hosts: $XDG_DATA_HOME, else ~/.local/share. Only looks.
std::filesystem::path dataHome();

/// The directory of the host's data: the store of its records and its user defaults. Thread-safe.
///
/// It is the one that the host has chosen, else $XDG_DATA_HOME/<name>, where the name is the identifier of the host's
/// bundle, else the name of its executable, written as a safe file name. While the host's property list exists but
/// cannot be read, the name that was used last stays in use: $XDG_DATA_HOME/tarvex/hosts remembers it. A host without
/// an identifier that an interpreter runs gets a warning, since it shares the interpreter's name with others.
///
/// The directory is created for this user alone. An existing one is closed to others, unless the host chose it and it
/// holds something already.
class DataDirectory {
public:
    /// `bundles` must outlive the first call of `path`; `identifier` is the one that the host gives itself in code,
    /// which the bundle knows too.
    DataDirectory(std::optional<std::filesystem::path> chosen, const Bundles& bundles,
                  std::optional<std::string> identifier = std::nullopt);

    /// Decided on the first call, the same ever after. Every call creates the directory when it is missing: a person
    /// may have removed it. A failure shows when a file in it is opened.
    const std::filesystem::path& path();

private:
    std::filesystem::path resolve() const;
    std::string hostName(const std::filesystem::path& dataHome) const;

    std::optional<std::filesystem::path> chosen_;
    const Bundles& bundles_;
    const std::optional<std::string> identifier_;
    std::once_flag resolved_;
    std::filesystem::path path_;
};

}  // namespace tarvex::platform
