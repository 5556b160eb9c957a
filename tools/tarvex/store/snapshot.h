#pragma once

#include <csignal>
#include <expected>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::tool {

/// A copy of a host's data in a temporary directory, for this user alone and removed at the end: what reads it can
/// change nothing of the host's. While it lives, signals that would end the process wait.
class Snapshot {
public:
    /// One sentence when there is no store in the directory, it cannot be read, or there is no room for the copy.
    static std::expected<Snapshot, std::string> take(const std::filesystem::path& dataDirectory);

    Snapshot(Snapshot&&) noexcept = default;
    Snapshot& operator=(Snapshot&&) = delete;
    ~Snapshot();

    /// The directory of the copy.
    const std::filesystem::path& directory() const { return *directory_; }
    /// The host's own file, not the copy.
    std::filesystem::path store() const;

    /// The copy of the store. One sentence, which names the host's file, when it is no store of this version.
    std::expected<std::unique_ptr<platform::SqliteConnection>, std::string> openStore() const;
    /// The copy of either database, whatever it holds.
    std::expected<std::unique_ptr<platform::SqliteConnection>, std::string> open(const std::string& name) const;

    /// The error's text as one sentence that names the host's file.
    std::string sentence(const platform::StoreError& error) const;

private:
    explicit Snapshot(std::filesystem::path original);
    std::expected<void, std::string> fill() const;

    std::filesystem::path original_;
    std::unique_ptr<const std::filesystem::path> directory_;
    sigset_t formerSignals_{};
};

}  // namespace tarvex::tool
