#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

/// Gives a handle back with the C function made for it.
template <auto release>
struct ReleaseWith {
    void operator()(auto* handle) const noexcept { release(handle); }
};

inline void endExecution(sqlite3_stmt* statement) {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

using Statement = std::unique_ptr<sqlite3_stmt, ReleaseWith<sqlite3_finalize>>;

/// One use of a prepared statement; borrows it. A statement that is not reset keeps its snapshot, and with it every
/// process of the application from emptying the log.
using Execution = std::unique_ptr<sqlite3_stmt, ReleaseWith<endExecution>>;

/// Valid until the statement that the value is of goes on. Empty for NULL.
std::string_view textOf(sqlite3_value* value);

/// A column of the current row as text; valid until the statement goes on. Empty for NULL.
std::string_view columnText(sqlite3_stmt* row, int column);

/// An open database file. Reentrant; the statements prepared on it count as part of it.
class SqliteConnection {
public:
    /// Opens the database at `path`, read-only where it cannot be written; a new one is made with mode 0600, as its log
    /// and index are then made by SQLite. `vfs` names SQLite's file system; null is the system's own. `wait` is how
    /// long the calls that follow wait for other connections, all together.
    static std::expected<std::unique_ptr<SqliteConnection>, StoreError> open(const std::filesystem::path& path,
                                                                             const char* vfs,
                                                                             std::chrono::milliseconds wait);

    /// Makes every later commit durable when it returns (write-ahead log, synced), lets rebuilt pages carry nothing of
    /// deleted records, and keeps temporary data in memory.
    [[nodiscard]] std::expected<void, StoreError> configure();

    /// From now on the last connection that closes moves the log into the database. Before, a file that turns out to be
    /// damaged, or another's, is closed as it was found.
    void tidyUpWhenClosed() const;
    /// Takes that back: nothing at the path is touched when this is closed.
    void leaveFilesWhenClosed() const;

    /// True when the file at the path is no longer the one that is open: it was removed, or another took its place.
    bool hasMoved() const;

    [[nodiscard]] std::expected<void, StoreError> execute(const char* sql) const;
    [[nodiscard]] std::expected<Statement, StoreError> prepare(std::string_view sql) const;

    /// The first column of the only row of `sql`.
    [[nodiscard]] std::expected<std::int64_t, StoreError> integer(std::string_view sql) const;

    /// Sets how long the following calls wait for other connections, all together.
    void waitAtMost(std::chrono::milliseconds wait) noexcept { patience_ = wait; }

    /// The failure of the last call, with the file's name.
    StoreError error() const;
    /// `message` about the file.
    StoreError error(std::string_view message, int code) const;

    const std::filesystem::path& path() const noexcept { return path_; }
    const char* vfs() const noexcept { return vfs_; }
    sqlite3* handle() const noexcept { return database_.get(); }
    bool readOnly() const noexcept { return sqlite3_db_readonly(database_.get(), "main") == 1; }

private:
    using Database = std::unique_ptr<sqlite3, ReleaseWith<sqlite3_close_v2>>;

    SqliteConnection(std::filesystem::path path, const char* vfs) : path_(std::move(path)), vfs_(vfs) {}

    static int waitForOthers(void* self, int attempt);
    std::expected<void, StoreError> switchToLog();

    std::filesystem::path path_;
    const char* vfs_;
    std::chrono::milliseconds patience_{0};
    Database database_;
};

/// A write transaction: all of it at `commit`, or nothing of it.
class SqliteTransaction {
public:
    /// Nothing may be written, nor committed, unless this succeeded.
    explicit SqliteTransaction(SqliteConnection& connection);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;

    const std::expected<void, StoreError>& begun() const noexcept { return begun_; }
    [[nodiscard]] std::expected<void, StoreError> commit();

private:
    SqliteConnection& connection_;
    std::expected<void, StoreError> begun_;
};

}  // namespace tarvex::platform
