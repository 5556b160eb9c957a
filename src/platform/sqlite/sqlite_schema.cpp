#include "platform/sqlite/sqlite_schema.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "platform/sqlite/deletion_scrub.h"
#include "tarvex/platform/json.h"

namespace tarvex::platform {
namespace {

constexpr std::string_view model = R"({"entities": [{"name": "DataEntry", "attributes": [
    {"name": "id", "type": "uuid", "optional": true},
    {"name": "timestamp", "type": "number", "optional": false},
    {"name": "type", "type": "string", "optional": true},
    {"name": "data", "type": "binary", "optional": true}]}]})";

// "TRVX": an identification for file(1) and for rescuers.
constexpr std::string_view creation =
    "PRAGMA application_id=0x54525658;"
    "CREATE TABLE DataEntry(seq INTEGER PRIMARY KEY, id BLOB, timestamp REAL, type TEXT, data BLOB);";

/// The columns of the table as "name TYPE key;", one after the other.
constexpr std::string_view columns = "seq INTEGER 1;id BLOB 0;timestamp REAL 0;type TEXT 0;data BLOB 0;";

int bindBytes(sqlite3_stmt* statement, int parameter, const void* bytes, std::size_t size) {
    // A null pointer would be NULL, not an empty value.
    return sqlite3_bind_blob64(statement, parameter, bytes ? bytes : "", size, SQLITE_STATIC);
}

std::expected<std::string, StoreError> storedColumns(SqliteConnection& connection, const char* table) {
    auto statement = connection.prepare(
        "SELECT info.name, info.type, info.pk FROM sqlite_schema AS object, pragma_table_info(object.name) AS info"
        " WHERE object.type = 'table' AND object.name = ?1 ORDER BY info.cid");
    if (!statement) return std::unexpected(std::move(statement.error()));
    sqlite3_stmt* row = statement->get();
    sqlite3_bind_text(row, 1, table, -1, SQLITE_STATIC);
    std::string text;
    int code = sqlite3_step(row);
    for (; code == SQLITE_ROW; code = sqlite3_step(row)) {
        for (int column = 0; column < 3; ++column)
            text.append(columnText(row, column)).append(column < 2 ? " " : ";");
    }
    if (code != SQLITE_DONE) return std::unexpected(connection.error());
    return text;
}

/// Without its one row, no deletion would ever be scrubbed.
std::expected<bool, StoreError> hasScrubRow(SqliteConnection& connection) {
    const auto stored = storedColumns(connection, "_scrub");
    if (!stored) return std::unexpected(stored.error());
    const auto rows = *stored == DeletionScrub::columns ? connection.integer("SELECT count(*) FROM _scrub") : 0;
    if (!rows) return std::unexpected(rows.error());
    if (*rows != 1)
        return std::unexpected(connection.error("table _scrub is not as the library keeps it", SQLITE_SCHEMA));
    return true;
}

}  // namespace

bool isObjectModel(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return decodeJson(text.str()) == decodeJson(model);
}

int bindRecord(sqlite3_stmt* insertion, const ManagedObject& object) {
    // A parameter that is not bound is NULL.
    int code = sqlite3_bind_double(insertion, 2, object.timestamp);
    if (object.id && code == SQLITE_OK)
        code = bindBytes(insertion, 1, object.id->bytes.data(), object.id->bytes.size());
    if (object.type && code == SQLITE_OK)
        code = sqlite3_bind_text64(insertion, 3, object.type->data(), object.type->size(), SQLITE_STATIC, SQLITE_UTF8);
    if (object.data && code == SQLITE_OK) code = bindBytes(insertion, 4, object.data->data(), object.data->size());
    return code;
}

ManagedObjectView recordIn(sqlite3_stmt* row) {
    // The values are looked up once; they are not protected from other threads, and one thread at a time uses the
    // connection.
    sqlite3_value* timestamp = sqlite3_column_value(row, 0);
    sqlite3_value* type = sqlite3_column_value(row, 1);
    sqlite3_value* data = sqlite3_column_value(row, 2);
    ManagedObjectView record;
    if (const int stored = sqlite3_value_type(timestamp); stored == SQLITE_FLOAT || stored == SQLITE_INTEGER)
        record.timestamp = sqlite3_value_double(timestamp);
    if (sqlite3_value_type(type) == SQLITE_TEXT) record.type = textOf(type);
    if (sqlite3_value_type(data) == SQLITE_BLOB) {
        const auto* bytes = static_cast<const std::byte*>(sqlite3_value_blob(data));
        record.data = std::span(bytes, static_cast<std::size_t>(sqlite3_value_bytes(data)));
    }
    return record;
}

std::expected<bool, StoreError> schemaIsPresentIn(SqliteConnection& connection) {
    const auto objects = connection.integer("SELECT count(*) FROM sqlite_schema");
    if (!objects) return std::unexpected(objects.error());
    if (*objects == 0) return false;
    const auto stored = storedColumns(connection, "DataEntry");
    if (!stored) return std::unexpected(stored.error());
    if (*stored != columns)
        return std::unexpected(connection.error("table DataEntry does not fit the object model", SQLITE_SCHEMA));
    return hasScrubRow(connection);
}

std::expected<void, StoreError> createSchemaIn(SqliteConnection& connection) {
    SqliteTransaction transaction(connection);
    if (!transaction.begun()) return transaction.begun();
    const auto present = schemaIsPresentIn(connection);
    if (!present) return std::unexpected(present.error());
    if (*present) return {};
    if (auto created = connection.execute(std::string(creation).append(DeletionScrub::creation).c_str()); !created)
        return created;
    return transaction.commit();
}

}  // namespace tarvex::platform
