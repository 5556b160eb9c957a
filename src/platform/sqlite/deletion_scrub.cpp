#include "platform/sqlite/deletion_scrub.h"

#include <chrono>
#include <string>
#include <utility>

#include "platform/sqlite/sqlite_schema.h"

namespace tarvex::platform {

namespace {

/// Cuts one of the files that the connection has open, through SQLite's own file system: a descriptor of the library's
/// would drop, when it is closed, the locks that hold others off.
bool cut(const SqliteConnection& connection, int pointerOfFile) {
    sqlite3_file* file = nullptr;
    sqlite3_file_control(connection.handle(), "main", pointerOfFile, static_cast<void*>(&file));
    if (file == nullptr || file->pMethods == nullptr) return true;
    return file->pMethods->xTruncate(file, 0) == SQLITE_OK &&
           file->pMethods->xSync(file, SQLITE_SYNC_FULL) == SQLITE_OK;
}

}  // namespace

std::expected<DeletionScrub, StoreError> DeletionScrub::prepare(SqliteConnection& connection) {
    DeletionScrub scrub(connection);
    auto progress = connection.prepare("SELECT deletions, rebuilt, scrubbed FROM _scrub");
    if (!progress) return std::unexpected(std::move(progress.error()));
    scrub.progress_ = std::move(*progress);
    return scrub;
}

std::expected<void, StoreError> DeletionScrub::noteDeletion() {
    return connection_->execute("UPDATE _scrub SET deletions = deletions + 1");
}

std::expected<void, StoreError> DeletionScrub::run() {
    Progress progress{};
    if (!readProgress(progress) || progress.scrubbed >= progress.deletions) return {};
    if (progress.rebuilt < progress.deletions) {
        if (auto rebuilt = connection_->execute("VACUUM"); !rebuilt) return rebuilt;
        progress.rebuilt = progress.deletions;
    }
    const int emptied =
        sqlite3_wal_checkpoint_v2(connection_->handle(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    if (emptied == SQLITE_OK) progress.scrubbed = progress.rebuilt;
    // On the emptied log: its former contents cannot come back once this is synced, not even by a power cut.
    record(progress);
    return {};
}

bool DeletionScrub::readProgress(Progress& progress) {
    const Execution row(progress_.get());
    if (sqlite3_step(row.get()) != SQLITE_ROW) return false;
    progress = {sqlite3_column_int64(row.get(), 0), sqlite3_column_int64(row.get(), 1),
                sqlite3_column_int64(row.get(), 2)};
    return true;
}

/// A failure only makes a later run repeat a step.
void DeletionScrub::record(const Progress& progress) {
    const std::string rebuilt = std::to_string(progress.rebuilt);
    const std::string scrubbed = std::to_string(progress.scrubbed);
    const std::string sql = "UPDATE _scrub SET rebuilt = max(rebuilt, " + rebuilt + "), scrubbed = max(scrubbed, " +
                            scrubbed + ") WHERE rebuilt < " + rebuilt + " OR scrubbed < " + scrubbed;
    [[maybe_unused]] const auto recorded = connection_->execute(sql.c_str());
}

std::expected<void, StoreError> cutToNothing(const std::filesystem::path& path, const char* vfs, Spare spare) {
    const auto connection = SqliteConnection::open(path, vfs, std::chrono::milliseconds::zero());
    if (!connection) return std::unexpected(connection.error());
    const SqliteConnection& database = **connection;
    // Also keeps the log's index in memory: on a full disk, there may be no room for its file.
    if (auto exclusive = database.execute("PRAGMA locking_mode=EXCLUSIVE"); !exclusive) return exclusive;
    // The first look takes the lock. An earlier cut may have left a database without tables.
    const auto tables = database.integer("SELECT count(*) FROM sqlite_schema");
    if (!tables) return std::unexpected(tables.error());
    if (spare == Spare::records) {
        const auto holdsRecord = database.integer(anyRecord);
        if (!holdsRecord) return std::unexpected(holdsRecord.error());
        if (*holdsRecord != 0) return {};
    }
    // Moves the part of the log that fits into the database, so that this is whole without it.
    sqlite3_wal_checkpoint_v2(database.handle(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    if (cut(database, SQLITE_FCNTL_JOURNAL_POINTER) && cut(database, SQLITE_FCNTL_FILE_POINTER)) return {};
    return std::unexpected(database.error("files cannot be cut", SQLITE_IOERR_TRUNCATE));
}

}  // namespace tarvex::platform
