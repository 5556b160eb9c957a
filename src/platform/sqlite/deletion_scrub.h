#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::platform {

/// Removes the bytes of deleted records from the files of a store.
///
/// A deletion only frees pages: their bytes stay in the database and in its log. VACUUM rebuilds every page from the
/// records that are stored now; once a checkpoint has copied the rebuilt pages and cut the log to nothing, no older
/// byte is in either file, whatever was stored in between. Other connections can hold up both steps, so the store
/// counts deletions, the last one that the pages were rebuilt after, and the last one that is scrubbed. They are
/// counters, not flags, so that a deletion of another process during a step is not taken for one that the step has
/// covered.
class DeletionScrub {
public:
    static constexpr const char* creation =
        "CREATE TABLE _scrub(deletions INTEGER NOT NULL, rebuilt INTEGER NOT NULL, scrubbed INTEGER NOT NULL);"
        "INSERT INTO _scrub VALUES(0, 0, 0)";

    /// The table's columns, as the schema's check lists them.
    static constexpr const char* columns = "deletions INTEGER 0;rebuilt INTEGER 0;scrubbed INTEGER 0;";

    /// An expression that is true when `run` would do something, for a statement that reads anyway.
    static constexpr const char* owed = "(SELECT deletions > scrubbed FROM _scrub)";

    static std::expected<DeletionScrub, StoreError> prepare(SqliteConnection& connection);

    /// Called in the transaction that deletes.
    [[nodiscard]] std::expected<void, StoreError> noteDeletion();

    /// Scrubs where that is owed, also for deletions of other processes; costs one cached read otherwise. Fails when
    /// the pages could not be rebuilt. A later run does the rest.
    std::expected<void, StoreError> run();

private:
    struct Progress {
        std::int64_t deletions;
        std::int64_t rebuilt;
        std::int64_t scrubbed;
    };

    explicit DeletionScrub(SqliteConnection& connection) : connection_(&connection) {}

    bool readProgress(Progress& progress);
    void record(const Progress& progress);

    SqliteConnection* connection_;
    Statement progress_;
};

/// The records that a cut of the files leaves alone.
enum class Spare : std::uint8_t { nothing, records };

/// Empties a database and its log by cutting both files to nothing: the deletion for a disk that is full, where a
/// transaction finds no room for what it would write. No byte of a record is left, and the database is a new one
/// without tables.
///
/// Fails, and changes nothing, when any other connection has the database open, also one of this process. With
/// `Spare::records`, does nothing when a record is stored.
///
/// A process that ends between the two cuts leaves the database without its log. The records that the log held are
/// among the deleted ones; the database is whole unless a full disk had kept the log from being moved into it.
[[nodiscard]] std::expected<void, StoreError> cutToNothing(const std::filesystem::path& path, const char* vfs,
                                                           Spare spare);

}  // namespace tarvex::platform
