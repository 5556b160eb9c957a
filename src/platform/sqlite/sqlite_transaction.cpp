#include "platform/sqlite/sqlite_transaction.h"

namespace tarvex::platform {

SqliteTransaction::SqliteTransaction(SqliteConnection& connection)
    // IMMEDIATE: a transaction that began to read cannot always go on to write, and SQLite does not wait for it then.
    : connection_(connection), begun_(connection.execute("BEGIN IMMEDIATE")) {}

SqliteTransaction::~SqliteTransaction() {
    // SQLite has already rolled back after some failures, and does so by itself when this fails.
    if (sqlite3_get_autocommit(connection_.handle()) == 0)
        sqlite3_exec(connection_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

std::expected<void, StoreError> SqliteTransaction::commit() {
    return connection_.execute("COMMIT");
}

}  // namespace tarvex::platform
