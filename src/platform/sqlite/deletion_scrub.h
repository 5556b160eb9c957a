#pragma once

#include <cstdint>
#include <expected>

#include "platform/sqlite/sqlite_connection.h"

namespace tarvex::platform {

/// Takes what deleted records left behind out of the files of a store.
///
/// A deletion only frees pages: their bytes stay in the database and in its log. VACUUM rebuilds every page from what
/// is stored now; once a checkpoint has copied the rebuilt pages and cut the log to nothing, no older byte is in either
/// file, whatever was stored in between. Other connections can hold up both steps, so the store counts deletions, the
/// last one that the pages were rebuilt after, and the last one that is scrubbed. They are counters, not flags, so that
/// a deletion of another process during a step is not taken for one that the step has covered.
class DeletionScrub {
public:
    static constexpr const char* creation =
        "CREATE TABLE _scrub(deletions INTEGER NOT NULL, rebuilt INTEGER NOT NULL, scrubbed INTEGER NOT NULL);"
        "INSERT INTO _scrub VALUES(0, 0, 0)";

    /// The table's columns, as the schema's check lists them.
    static constexpr const char* columns = "deletions INTEGER 0;rebuilt INTEGER 0;scrubbed INTEGER 0;";

    /// Whether `run` would do something, as an expression for a statement that reads anyway.
    static constexpr const char* owed = "(SELECT deletions > scrubbed FROM _scrub)";

    static std::expected<DeletionScrub, StoreError> prepare(SqliteConnection& connection);

    /// Called in the transaction that deletes.
    [[nodiscard]] std::expected<void, StoreError> noteDeletion();

    /// Does what is owed, also for deletions of other processes; does nothing otherwise. Costs one cached read then.
    /// Fails when the pages could not be rebuilt. What is still owed is done by a later run.
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

}  // namespace tarvex::platform
