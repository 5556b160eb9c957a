#include "platform/sqlite/deletion_scrub.h"

#include <string>
#include <utility>

namespace tarvex::platform {

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
    // On the emptied log: what it held before cannot come back once this is synced, not even by a power cut.
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

}  // namespace tarvex::platform
