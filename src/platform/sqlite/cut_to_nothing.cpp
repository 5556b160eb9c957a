#include "platform/sqlite/cut_to_nothing.h"

#include <chrono>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::platform {

namespace {

/// One of the files that the connection has open, through SQLite's own file system: a descriptor of ours would drop,
/// when it is closed, the locks that hold others off.
bool cut(const SqliteConnection& connection, int pointerOfFile) {
    sqlite3_file* file = nullptr;
    sqlite3_file_control(connection.handle(), "main", pointerOfFile, static_cast<void*>(&file));
    if (file == nullptr || file->pMethods == nullptr) return true;
    return file->pMethods->xTruncate(file, 0) == SQLITE_OK &&
           file->pMethods->xSync(file, SQLITE_SYNC_FULL) == SQLITE_OK;
}

}  // namespace

std::expected<void, StoreError> cutToNothing(const std::filesystem::path& path, const char* vfs,
                                             const std::string& spared) {
    const auto connection = SqliteConnection::open(path, vfs, std::chrono::milliseconds::zero());
    if (!connection) return std::unexpected(connection.error());
    const SqliteConnection& database = **connection;
    // Also keeps the log's index in memory: on a full disk, there may be no room for its file.
    if (auto exclusive = database.execute("PRAGMA locking_mode=EXCLUSIVE"); !exclusive) return exclusive;
    // The first look takes the lock.
    if (const auto look = database.integer("SELECT count(*) FROM sqlite_schema"); !look)
        return std::unexpected(look.error());
    if (!spared.empty()) {
        const auto holdsRow = database.integer("SELECT EXISTS(SELECT 1 FROM " + spared + ")");
        if (!holdsRow) return std::unexpected(holdsRow.error());
        if (*holdsRow != 0) return {};
    }
    // What of the log fits into the database, so that this is whole without it.
    sqlite3_wal_checkpoint_v2(database.handle(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    if (cut(database, SQLITE_FCNTL_JOURNAL_POINTER) && cut(database, SQLITE_FCNTL_FILE_POINTER)) return {};
    return std::unexpected(database.error("files cannot be cut", SQLITE_IOERR_TRUNCATE));
}

}  // namespace tarvex::platform
