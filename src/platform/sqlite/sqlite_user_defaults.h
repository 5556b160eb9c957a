#pragma once

#include <expected>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "platform/sqlite/sqlite_connection.h"
#include "tarvex/platform/diagnostics.h"
#include "tarvex/platform/user_defaults.h"

namespace tarvex::platform {

/// User defaults in a database of their own, `UserDefaults.sqlite`, which is opened at the first use.
///
/// Every read goes to the file that lies in its place: one that was removed is made again, empty. A read that fails
/// returns the value that was last read or written. A value that cannot be written is kept in memory, is read back from
/// there, and is tried again at every read and write; the first failure is logged as a warning.
///
/// An operation waits 50 ms for other processes, one that opens the file 100 ms; after a failure none waits until
/// one succeeds.
class SqliteUserDefaults final : public UserDefaults {
public:
    /// `directory` returns the place of the file whenever it is opened, and has made that directory then.
    /// `vfs` names SQLite's file system; null is the system's own.
    explicit SqliteUserDefaults(std::function<std::filesystem::path()> directory, const char* vfs = nullptr);

    bool boolForKey(std::string_view key) const override;
    std::optional<std::string> stringForKey(std::string_view key) const override;
    std::expected<std::optional<std::string>, std::string> durableStringForKey(std::string_view key) const override;
    using UserDefaults::setValueForKey;
    void setValueForKey(bool value, std::string_view key) override;
    void setValueForKey(std::string_view value, std::string_view key) override;
    std::string setStringIfAbsent(std::string_view value, std::string_view key) override;
    void removeObjectForKey(std::string_view key) override;

private:
    using Value = std::variant<bool, std::string>;
    struct Unwritten {
        std::optional<Value> value = std::nullopt;  ///< absent: what is stored is removed
        bool onlyIfAbsent = false;                  ///< gives way to a string that is stored by then
    };

    std::optional<Value> value(std::string_view key) const;
    static std::optional<std::string> stringIn(std::optional<Value> value);
    const Unwritten* unwritten(std::string_view key, const std::optional<Value>& stored) const;
    std::expected<std::optional<Value>, StoreError> read(std::string_view key) const;
    std::expected<std::optional<Value>, StoreError> stored(std::string_view key) const;
    void write(std::string_view key, Unwritten value);
    std::expected<void, StoreError> writeUnwritten() const;
    std::expected<void, StoreError> writeAll() const;
    std::expected<void, StoreError> open() const;
    void finish(const std::expected<void, StoreError>& outcome) const;

    const std::function<std::filesystem::path()> directory_;
    const char* const vfs_;
    mutable std::mutex mutex_;
    mutable std::unique_ptr<SqliteConnection> connection_;
    mutable bool patient_ = true;  // the last operation succeeded
    mutable WarningOnce warning_;
    mutable std::map<std::string, Unwritten, std::less<>> unwritten_;
    mutable std::map<std::string, Value, std::less<>> lastKnown_;
};

}  // namespace tarvex::platform
