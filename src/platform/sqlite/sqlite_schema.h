#pragma once

#include <expected>
#include <filesystem>

#include "platform/sqlite/sqlite_connection.h"
#include "tarvex/platform/object_store.h"

namespace tarvex::platform {

// The one object model that a store keeps, as a resource file and as SQL: a row of the table DataEntry for each record.
// `seq` counts the records in the order of their insertion. Columns carry no constraint: a value that a constraint
// refuses would hold up every later record too.

/// True when `file` is a JSON text of that model.
bool isObjectModel(const std::filesystem::path& file);

inline constexpr const char* recordInsertion =
    "INSERT INTO DataEntry(id, timestamp, type, data) VALUES(?1, ?2, ?3, ?4)";
inline constexpr const char* recordSelection = "SELECT timestamp, type, data FROM DataEntry ORDER BY seq";
/// Without a condition, SQLite drops whole pages instead of one record after the other.
inline constexpr const char* recordDeletion = "DELETE FROM DataEntry";
/// An expression. Records leave only all at once, so their numbers have no gaps. Each subselect reads an edge of the
/// tree; both in one would read it all.
inline constexpr const char* recordCount = "(SELECT max(seq) FROM DataEntry) - (SELECT min(seq) FROM DataEntry) + 1";
inline constexpr const char* anyRecord = "SELECT EXISTS(SELECT 1 FROM DataEntry)";

/// Binds the parameters of `recordInsertion` without copying: the object must live until the statement is reset.
/// Returns SQLite's result.
int bindRecord(sqlite3_stmt* insertion, const ManagedObject& object);

/// The current row of `recordSelection`, valid until the statement goes on.
ManagedObjectView recordIn(sqlite3_stmt* row);

/// True when the tables are there, the library's own included; false in an empty database; an error when it holds
/// something else. Only reads.
[[nodiscard]] std::expected<bool, StoreError> schemaIsPresentIn(SqliteConnection& connection);

/// Creates the tables in an empty database, unless another process was faster. Durable when it succeeds.
[[nodiscard]] std::expected<void, StoreError> createSchemaIn(SqliteConnection& connection);

}  // namespace tarvex::platform
